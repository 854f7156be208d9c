/* Field sets: which event types are wanted, and which of their fields.
 *
 * A set is loaded once, from a file or from lines, and then only read, from any thread.
 */
#ifndef TEV_FIELD_SET_H
#define TEV_FIELD_SET_H

#include <stdbool.h>
#include <stddef.h>

#include "tev/export.h"

TEV_C_BEGIN

/* Every call reports a null handle in the log, and returns false or null. */
typedef struct tev_provider_field_set_t tev_provider_field_set_t;

/* An empty set, to be released with tev_provider_field_set_destroy(); null when memory is short. */
TEV_API tev_provider_field_set_t* tev_provider_field_set_create(void);
TEV_API void tev_provider_field_set_destroy(tev_provider_field_set_t* field_set);

/* Load the set anew. False when the file cannot be read or no type pattern is found. */
TEV_API bool tev_provider_field_set_init_from_file(tev_provider_field_set_t* field_set,
                                                   const char* fset_filename);
TEV_API bool tev_provider_field_set_init_from_lines(tev_provider_field_set_t* field_set,
                                                    const char* const* lines, size_t num_lines);

/* Whether the field is wanted. An empty type name is judged by the section "default" alone. */
TEV_API bool tev_provider_field_set_should_include_field(const tev_provider_field_set_t* field_set,
                                                         const char* type_name,
                                                         const char* field_name);

/* Whether a type pattern matches the name. That there is a section "default" does not count. */
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

/* The set itself. Problems are logged; exceptions come from memory only. */
class ProviderFieldSet {
 public:
  /* Load the set anew. False when the file cannot be read or no type pattern is found. */
  TEV_API bool initializeFromFile(const char* filename);
  TEV_API bool loadFromFile(const std::string& filename);
  TEV_API bool initializeFromLines(const std::vector<std::string>& lines);
  TEV_API bool loadFromLines(const std::vector<std::string>& lines);

  /* Whether a type pattern matches the name. That there is a section "default" does not count. */
  TEV_API bool isTypeOfInterest(const std::string& type_name) const;

  /* Whether a pattern that matches the type lists the field, or lists none at all; for a type that
   * no pattern matches, whether the section "default" does. */
  TEV_API bool shouldIncludeField(const std::string& type_name,
                                  const std::string& field_name) const;

  /* All field patterns that decide on the type's fields, in the order in which they are tried.
   * Empty when every field of the type is wanted, or none: shouldIncludeField() tells which. */
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

  /* The type patterns of one section share its list, which does not change after loading. So a set
   * takes no more memory than its file, however many type patterns meet however many fields. */
  using TypePatterns = std::map<std::string, std::shared_ptr<const FieldPatterns>>;

  std::shared_ptr<FieldPatterns> openSection(std::string_view type_patterns);
  std::vector<const FieldPatterns*> listsFor(const std::string& type_name) const;

  std::string name_;
  TypePatterns type_patterns_;
};

}  // namespace tev
#endif

#endif
