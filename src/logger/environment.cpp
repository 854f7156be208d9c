#include <cstdlib>
#include <cstring>
#include <memory_resource>
#include <string>

#include "src/support/guard.h"
#include "tev/logger.h"

namespace {

constexpr char kPrefix[] = "TEV_";
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;

// Called while the logger initialises itself, so this code must not log.
constexpr char kLevelVariable[] = "TEV_API_LOG_LEVEL";

const char* lookUpBoth(const char* name, const char* prefixed, const char* bare) {
  const char* const prefixed_value = std::getenv(prefixed);
  const char* const bare_value = std::getenv(bare);

  if (!prefixed_value) return bare_value;
  if (std::strcmp(name, kLevelVariable) == 0) return prefixed_value;
  if (bare_value && std::strcmp(bare_value, prefixed_value) != 0)
    TEV_LOG_WARNING("[%s] Environment variables conflict - %s=%s and %s=%s. Using %s", "tev_getenv",
                    prefixed, prefixed_value, bare, bare_value, prefixed);
  return prefixed_value;
}

// Only a very long name without the prefix needs allocated memory.
const char* lookUp(const char* name) {
  if (std::strncmp(name, kPrefix, kPrefixLength) == 0)
    return lookUpBoth(name, name, name + kPrefixLength);
  char room[256];
  std::pmr::monotonic_buffer_resource memory(room, sizeof room);
  std::pmr::string prefixed(&memory);
  prefixed.reserve(kPrefixLength + std::strlen(name));
  prefixed.append(kPrefix).append(name);
  return lookUpBoth(name, prefixed.c_str(), name);
}

}  // namespace

const char* tev_getenv(const char* name) {
  if (!name) return nullptr;
  return tev::support::guarded<const char*>(__func__, nullptr, [&] { return lookUp(name); });
}
