// Input: lines. Every reader of texts gets them: the dictionary, the lists of sources, the filters,
// and the sets.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "tests/fuzz/fuzz.h"
#include "tev/counter_set.h"
#include "tev/dict.h"
#include "tev/field_set.h"
#include "tev/filters.h"
#include "tev/sources.h"

namespace {

using tev::test::check;
using Lines = std::vector<std::string>;

// Keys and values, in turn.
void fillDictionary(const Lines& lines) {
  tev_custom_options* const dict = tev_dict_create();
  for (std::size_t i = 0; i < lines.size(); i += 2) {
    const char* const key = lines[i].c_str();
    const char* const value = i + 1 < lines.size() ? lines[i + 1].c_str() : nullptr;
    check(tev_dict_add(dict, key, value), "memory suffices");
    const char* const found = tev_dict_get(dict, key);
    check(found ? value && std::strcmp(found, value) == 0 : !value, "what was added last is found");
  }
  tev_dict_delete(tev_dict_dup(dict));
  tev_dict_dump(dict, "fuzz");
  tev_dict_delete(dict);
}

void readSources(const char* text) {
  tev_source_array_t* const array = tev_create_source_array_from_string(text);
  for (std::uint32_t i = 0; array && i < array->count; ++i)
    check(std::memchr(array->sources[i]->id, '\0', sizeof array->sources[i]->id), "identities end");
  tev_destroy_source_array(array);
}

void filter(const char* expression, const char* name) {
  std::array<tev_filter_token_t, TEV_FILTER_MAX_TOKENS> incl, excl;
  std::size_t num_incl = 0;
  std::size_t num_excl = 0;
  tev_filter_get_incl_excl_tokens(expression, incl.data(), &num_incl, excl.data(), &num_excl);
  for (const auto& [tokens, count] : {std::pair(&incl, num_incl), {&excl, num_excl}})
    for (std::size_t i = 0; i < count; ++i)
      check(std::memchr((*tokens)[i], '\0', TEV_FILTER_TOKEN_SIZE), "tokens end");
  tev_filter_have_match(incl.data(), num_incl, excl.data(), num_excl, name);
}

// A token that fills its slot, at the end of its own block, without a NUL.
void matchSlot(const std::uint8_t* data, std::size_t size, const char* name) {
  const auto slot = std::make_unique<tev_filter_token_t[]>(1);
  std::memset(slot[0], '$', sizeof slot[0]);
  std::copy_n(data, std::min(size, sizeof slot[0]), slot[0]);
  tev_filter_have_match(slot.get(), 1, slot.get(), 1, name);
}

void loadSets(const Lines& lines) {
  tev::ProviderCounterSet counters;
  counters.loadFromLines(lines, {"unit", "group"});
  counters.getCounterAlias(lines[0]);
  for (const auto& pattern : counters.getCounterPatterns())
    counters.shouldIncludeCounter(lines[0], pattern);
  counters.printConfiguration();

  tev::ProviderFieldSet fields;
  fields.loadFromLines(lines);
  fields.shouldIncludeField(lines[0], lines.back());
  for (const auto& pattern : fields.getTypePatterns())
    check(fields.isTypeOfInterest(pattern), "a pattern matches itself");
  fields.printConfiguration();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tev::test::CapturedLog formatted;
  const Lines lines = tev::test::linesOf(data, size);
  fillDictionary(lines);
  loadSets(lines);
  readSources(lines[0].c_str());
  filter(lines.back().c_str(), lines[0].c_str());
  matchSlot(data, size, lines[0].c_str());
  return 0;
}
