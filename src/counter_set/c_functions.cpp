#include <cstring>

#include "src/support/c_handle.h"
#include "tev/counter_set.h"

struct tev_provider_counter_set_t {
  tev::ProviderCounterSet* object;
};

namespace {

using namespace tev::support;

constexpr const char* kHandle = "counter_set";

}  // namespace

tev_provider_counter_set_t* tev_provider_counter_set_create(void) {
  return createHandle<tev_provider_counter_set_t>(__func__, "tev_provider_counter_set_t",
                                                  "ProviderCounterSet");
}

void tev_provider_counter_set_destroy(tev_provider_counter_set_t* counter_set) {
  destroyHandle(counter_set);
}

bool tev_provider_counter_set_init_from_file(tev_provider_counter_set_t* counter_set,
                                             const char* cset_filename) {
  auto* const set = objectOf(__func__, counter_set, kHandle);
  if (!set || !given(__func__, cset_filename, "cset_filename")) return false;
  return succeeds(__func__, {"Failed to initialize ProviderCounterSet from file"},
                  [&] { return set->initializeFromFile(cset_filename); });
}

bool tev_provider_counter_set_init_from_lines(tev_provider_counter_set_t* counter_set,
                                              const char* const* lines, std::size_t num_lines) {
  auto* const set = objectOf(__func__, counter_set, kHandle);
  if (!set || !linesGiven(__func__, lines, num_lines)) return false;
  return succeeds(__func__, {"Failed to initialize ProviderCounterSet from lines"},
                  [&] { return set->initializeFromLines(copyLines(lines, num_lines)); });
}

bool tev_provider_counter_set_should_include_counter(const tev_provider_counter_set_t* counter_set,
                                                     const char* counter_name) {
  const auto* const set = objectOf(__func__, counter_set, kHandle);
  if (!set || !given(__func__, counter_name, "counter_name")) return false;
  return attempt(__func__, {"Failed to check if counter should be included"}, false,
                 [&] { return set->shouldIncludeCounter(counter_name); });
}

char* tev_provider_counter_set_get_counter_alias(const tev_provider_counter_set_t* counter_set,
                                                 const char* counter_name) {
  const char* const function = __func__;
  const auto* const set = objectOf(function, counter_set, kHandle);
  if (!set || !given(function, counter_name, "counter_name")) return nullptr;
  return attempt<char*>(function, {"Failed to get counter alias for counter", counter_name},
                        nullptr, [&]() -> char* {
                          const std::string alias = set->getCounterAlias(counter_name);
                          if (alias.empty()) return nullptr;
                          char* const copy = strdup(alias.c_str());
                          if (!copy)
                            TEV_LOG_ERROR("[%s] Failed to copy alias '%s' for counter '%s'",
                                          function, alias.c_str(), counter_name);
                          return copy;
                        });
}

char* tev_provider_counter_set_get_name(const tev_provider_counter_set_t* counter_set) {
  const char* const function = __func__;
  const auto* const set = objectOf(function, counter_set, kHandle);
  if (!set) return nullptr;
  return attempt<char*>(function, {"Failed to get counter set name"}, nullptr, [&] {
    char* const copy = strdup(set->getName().c_str());
    if (!copy) logFailure(function, {"Failed to copy counter set name", set->getName().c_str()});
    return copy;
  });
}

bool tev_provider_counter_set_is_initialized(const tev_provider_counter_set_t* counter_set) {
  const auto* const set = objectOf(__func__, counter_set, kHandle);
  return set && set->isInitialized();
}

bool tev_provider_counter_set_print_configuration(const tev_provider_counter_set_t* counter_set) {
  const auto* const set = objectOf(__func__, counter_set, kHandle);
  if (!set) return false;
  return attempt(__func__, {"Failed to print counter set configuration"}, false, [&] {
    set->printConfiguration();
    return true;
  });
}
