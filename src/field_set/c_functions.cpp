#include <cstring>

#include "src/support/c_handle.h"
#include "tev/field_set.h"

struct tev_provider_field_set_t {
  tev::ProviderFieldSet* object;
};

namespace {

using namespace tev::support;

constexpr const char* kHandle = "field_set";

}  // namespace

tev_provider_field_set_t* tev_provider_field_set_create(void) {
  return createHandle<tev_provider_field_set_t>(__func__, "tev_provider_field_set_t",
                                                "ProviderFieldSet");
}

void tev_provider_field_set_destroy(tev_provider_field_set_t* field_set) {
  if (given(__func__, field_set, kHandle)) destroyHandle(field_set);
}

bool tev_provider_field_set_init_from_file(tev_provider_field_set_t* field_set,
                                           const char* fset_filename) {
  auto* const set = objectOf(__func__, field_set, kHandle);
  if (!set || !given(__func__, fset_filename, "fset_filename")) return false;
  return succeeds(__func__, {"Failed to initialize ProviderFieldSet from file"},
                  [&] { return set->initializeFromFile(fset_filename); });
}

bool tev_provider_field_set_init_from_lines(tev_provider_field_set_t* field_set,
                                            const char* const* lines, std::size_t num_lines) {
  auto* const set = objectOf(__func__, field_set, kHandle);
  if (!set || !linesGiven(__func__, lines, num_lines)) return false;
  return succeeds(__func__, {"Failed to initialize ProviderFieldSet from lines"},
                  [&] { return set->initializeFromLines(copyLines(lines, num_lines)); });
}

bool tev_provider_field_set_should_include_field(const tev_provider_field_set_t* field_set,
                                                 const char* type_name, const char* field_name) {
  const auto* const set = objectOf(__func__, field_set, kHandle);
  if (!set || !given(__func__, type_name, "type_name") ||
      !given(__func__, field_name, "field_name"))
    return false;
  return attempt(__func__, {"Failed to check if field should be included"}, false,
                 [&] { return set->shouldIncludeField(type_name, field_name); });
}

bool tev_provider_field_set_is_type_of_interest(const tev_provider_field_set_t* field_set,
                                                const char* type_name) {
  const auto* const set = objectOf(__func__, field_set, kHandle);
  if (!set || !given(__func__, type_name, "type_name")) return false;
  return attempt(__func__, {"Failed to check if type is of interest"}, false,
                 [&] { return set->isTypeOfInterest(type_name); });
}

char* tev_provider_field_set_get_name(const tev_provider_field_set_t* field_set) {
  const char* const function = __func__;
  const auto* const set = objectOf(function, field_set, kHandle);
  if (!set) return nullptr;
  return attempt<char*>(function, {"Failed to get field set name"}, nullptr, [&] {
    char* const copy = strdup(set->getName().c_str());
    if (!copy) logFailure(function, {"failed to copy field set name"});
    return copy;
  });
}

bool tev_provider_field_set_is_initialized(const tev_provider_field_set_t* field_set) {
  const auto* const set = objectOf(__func__, field_set, kHandle);
  return set && set->isInitialized();
}

bool tev_provider_field_set_print_configuration(const tev_provider_field_set_t* field_set) {
  const auto* const set = objectOf(__func__, field_set, kHandle);
  if (!set) return false;
  return attempt(__func__, {"Failed to print field set configuration"}, false, [&] {
    set->printConfiguration();
    return true;
  });
}
