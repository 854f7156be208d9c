/* Field sets: they select event types and their fields.
 *
 * A set is loaded once, from a file or from lines. After that, any thread may read it.
 */
#ifndef TEV_FIELD_SET_H
#define TEV_FIELD_SET_H

#include <stdbool.h>
#include <stddef.h>

#include "tev/export.h"

TEV_C_BEGIN

/* With a null handle, every call logs an error and returns false or null. */
typedef struct tev_provider_field_set_t tev_provider_field_set_t;

/* An empty set, to be released with tev_provider_field_set_destroy(); null when memory is short. */
TEV_API tev_provider_field_set_t* tev_provider_field_set_create(void);
TEV_API void tev_provider_field_set_destroy(tev_provider_field_set_t* field_set);

/* Replace the contents of the set. False when the file cannot be read or has no type pattern. */
TEV_API bool tev_provider_field_set_init_from_file(tev_provider_field_set_t* field_set,
                                                   const char* fset_filename);
TEV_API bool tev_provider_field_set_init_from_lines(tev_provider_field_set_t* field_set,
                                                    const char* const* lines, size_t num_lines);

/* Whether the set selects the field. For an empty type name, only the section "default" decides. */
TEV_API bool tev_provider_field_set_should_include_field(const tev_provider_field_set_t* field_set,
                                                         const char* type_name,
                                                         const char* field_name);

/* Whether a type pattern matches the name. The section "default" is ignored. */
TEV_API bool tev_provider_field_set_is_type_of_interest(const tev_provider_field_set_t* field_set,
                                                        const char* type_name);

/* The set's name, in a new buffer that the caller frees. */
TEV_API char* tev_provider_field_set_get_name(const tev_provider_field_set_t* field_set);

/* Whether the set has type patterns. */
TEV_API bool tev_provider_field_set_is_initialized(const tev_provider_field_set_t* field_set);

/* Logs the set at info level. */
TEV_API bool tev_provider_field_set_print_configuration(const tev_provider_field_set_t* field_set);

TEV_C_END

#ifdef __cplusplus
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace tev {

/* The set itself. Problems are logged. The only exception is std::bad_alloc. */
class ProviderFieldSet {
 public:
  /* Replace the contents of the set. False when the file cannot be read or has no type pattern. */
  TEV_API bool initializeFromFile(const char* filename);
  TEV_API bool loadFromFile(const std::string& filename);
  TEV_API bool initializeFromLines(const std::vector<std::string>& lines);
  TEV_API bool loadFromLines(const std::vector<std::string>& lines);

  /* Whether a type pattern matches the name. The section "default" is ignored. */
  TEV_API bool isTypeOfInterest(const std::string& type_name) const;

  /* Whether a section that matches the type selects the field. A section selects the fields that it
   * lists, or all fields when it does not list any. For a type that does not match any section, the
   * section "default" decides. */
  TEV_API bool shouldIncludeField(const std::string& type_name,
                                  const std::string& field_name) const;

  /* All field patterns that decide on the type's fields, in the order in which they are tried.
   * Empty when either all fields of the type are selected, or none: shouldIncludeField()
   * distinguishes the two cases. */
  TEV_API std::vector<std::string> getFieldPatterns(const std::string& type_name) const;

  /* In byte-wise order. */
  TEV_API std::vector<std::string> getTypePatterns() const;

  /* The stem of the file's name; empty for a set that was loaded from lines. */
  TEV_API const std::string& getName() const;

  /* Whether the set has type patterns. */
  TEV_API bool isInitialized() const;

  /* Logs the set at info level. */
  TEV_API void printConfiguration() const;

 private:
  using FieldPatterns = std::vector<std::string>; /* empty: every field */

  /* The type patterns of one section share its list, which does not change after loading. A set
   * therefore needs about as much memory as its file. */
  using TypePatterns = std::map<std::string, std::shared_ptr<const FieldPatterns>>;

  template <class Texts>
  bool load(const Texts& lines);
  std::shared_ptr<FieldPatterns> openSection(std::string_view type_patterns);
  std::vector<const FieldPatterns*> listsFor(const std::string& type_name) const;

  std::string name_;
  TypePatterns type_patterns_;
};

}  // namespace tev
#endif

#endif
