/* Counter sets: they select counters, and the alias under which each is reported.
 *
 * A set is loaded once, from a file or from lines. After that, any thread may read it.
 */
#ifndef TEV_COUNTER_SET_H
#define TEV_COUNTER_SET_H

#include <stdbool.h>
#include <stddef.h>

#include "tev/export.h"

TEV_C_BEGIN

/* With a null handle, every call except destroy logs an error and returns false or null. */
typedef struct tev_provider_counter_set_t tev_provider_counter_set_t;

/* An empty set, to be released with tev_provider_counter_set_destroy(); null when memory is short.
 */
TEV_API tev_provider_counter_set_t* tev_provider_counter_set_create(void);
TEV_API void tev_provider_counter_set_destroy(tev_provider_counter_set_t* counter_set);

/* Replace the contents of the set. False when the file cannot be read or has no pattern. */
TEV_API bool tev_provider_counter_set_init_from_file(tev_provider_counter_set_t* counter_set,
                                                     const char* cset_filename);
TEV_API bool tev_provider_counter_set_init_from_lines(tev_provider_counter_set_t* counter_set,
                                                      const char* const* lines, size_t num_lines);

/* Whether any pattern matches the name. */
TEV_API bool tev_provider_counter_set_should_include_counter(
    const tev_provider_counter_set_t* counter_set, const char* counter_name);

/* The alias, in a new buffer that the caller frees; null when the counter has none. */
TEV_API char* tev_provider_counter_set_get_counter_alias(
    const tev_provider_counter_set_t* counter_set, const char* counter_name);

/* The set's name, in a new buffer that the caller frees. */
TEV_API char* tev_provider_counter_set_get_name(const tev_provider_counter_set_t* counter_set);

/* Whether the set has patterns. */
TEV_API bool tev_provider_counter_set_is_initialized(const tev_provider_counter_set_t* counter_set);

/* Logs the set at info level. */
TEV_API bool tev_provider_counter_set_print_configuration(
    const tev_provider_counter_set_t* counter_set);

TEV_C_END

#ifdef __cplusplus
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tev {

/* The set itself. Problems are logged. The only exception is std::bad_alloc. */
class ProviderCounterSet {
 public:
  /* Replace the contents of the set. `user_tags` names the comments of the form "# tag=value" that
   * are kept. False when the file cannot be read or no pattern is found. */
  TEV_API bool initializeFromFile(const char* filename,
                                  const std::vector<std::string>& user_tags = {});
  TEV_API bool loadFromFile(const std::string& filename,
                            const std::vector<std::string>& user_tags = {});
  TEV_API bool initializeFromLines(const std::vector<std::string>& lines,
                                   const std::vector<std::string>& user_tags = {});
  TEV_API bool loadFromLines(const std::vector<std::string>& lines,
                             const std::vector<std::string>& user_tags = {});

  /* Whether the name matches `pattern`, or any pattern of the set when `pattern` is empty. A set
   * without patterns does not include any counter. */
  TEV_API bool shouldIncludeCounter(const std::string& name, const std::string& pattern = {}) const;

  /* The alias of the first pattern, in byte-wise order, that matches the name; empty when the name
   * has no alias. */
  TEV_API std::string getCounterAlias(const std::string& name) const;

  /* In byte-wise order. */
  TEV_API std::vector<std::string> getCounterPatterns() const;

  /* The tags that were found, with their values. */
  TEV_API const std::unordered_map<std::string, std::string>& getUserTagValues() const;

  /* The stem of the file's name; empty for a set that was loaded from lines. */
  TEV_API const std::string& getName() const;

  /* Whether the set has patterns. */
  TEV_API bool isInitialized() const;

  /* Logs the set at info level. */
  TEV_API void printConfiguration() const;

 private:
  template <class Texts>
  bool load(const Texts& lines, const std::vector<std::string>& user_tags);
  void readUserTag(std::string_view comment, const std::vector<std::string>& user_tags);
  void readEntry(std::string_view line);

  std::string name_;
  std::map<std::string, std::string> counter_pattern_to_alias_;
  std::unordered_map<std::string, std::string> user_tag_values_;
};

}  // namespace tev
#endif

#endif
