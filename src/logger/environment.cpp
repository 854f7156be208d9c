#include <cstdlib>
#include <cstring>
#include <string>

#include "src/support/guard.h"
#include "tev/logger.h"

namespace {

constexpr char kPrefix[] = "TEV_";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;

// Looked up while the logger initialises itself, so nothing may be logged about it.
constexpr char kLevelVariable[] = "TEV_API_LOG_LEVEL";

const char* lookUp(const char* name) {
  const bool is_prefixed = std::strncmp(name, kPrefix, kPrefixLength) == 0;
  const std::string prefixed = is_prefixed ? name : std::string(kPrefix) + name;
  const char* const bare = is_prefixed ? name + kPrefixLength : name;

  const char* const prefixed_value = std::getenv(prefixed.c_str());
  const char* const bare_value = std::getenv(bare);

  if (!prefixed_value) return bare_value;
  if (std::strcmp(name, kLevelVariable) == 0) return prefixed_value;
  if (bare_value && std::strcmp(bare_value, prefixed_value) != 0)
    TEV_LOG_WARNING("[%s] Environment variables conflict - %s=%s and %s=%s. Using %s", "tev_getenv",
                    prefixed.c_str(), prefixed_value, bare, bare_value, prefixed.c_str());
  return prefixed_value;
}

}  // namespace

const char* tev_getenv(const char* name) {
  if (!name) return nullptr;
  return tev::support::guarded<const char*>(__func__, nullptr, [&] { return lookUp(name); });
}
