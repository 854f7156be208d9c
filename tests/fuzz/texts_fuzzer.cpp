// Input: lines. Every reader of texts gets them: the dictionary, the lists of sources, the filters,
// the sets, and the schema, to which each line is a type.
#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

#include "tests/fuzz/fuzz.h"
#include "tests/support/owned.h"
#include "tev/counter_set.h"
#include "tev/dict.h"
#include "tev/field_set.h"
#include "tev/filters.h"
#include "tev/schema.h"
#include "tev/serializer.h"
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

// A type: between commas, its name and its fields, each with a name, a type, an array length and a
// description. The texts go into the canonical text that the identity is made of.
void addType(tev_schema_t& schema, const std::string& line) {
  const auto pieces = tev::support::split(line, ',');
  const std::vector<std::string> texts(pieces.begin(), pieces.end());
  std::vector<tev_type_field_info_t> fields;
  for (std::size_t i = 1; i + 3 < texts.size(); i += 4)
    fields.push_back({.field_name = texts[i].c_str(),
                      .description = texts[i + 3].empty() ? nullptr : texts[i + 3].c_str(),
                      .type_name = texts[i + 1].c_str(),
                      .counting_mode = static_cast<std::uint32_t>(texts[i + 3].size()),
                      .array_length = static_cast<std::uint16_t>(
                          std::strtoul(texts[i + 2].c_str(), nullptr, 10))});
  tev_schema_add_type(&schema, texts[0].c_str(), fields.data(), fields.size(), nullptr);
}

// In a buffer of any size, nothing is written beyond its end.
void serialize(tev_type_system_t& types, std::size_t capacity) {
  std::vector<std::uint8_t> buffer(capacity);
  const tev_schema_t& schema = *types.schemas[0];
  for (unsigned type = 0; type < schema.num_types; ++type) {
    const auto size = schema.types[type]->size;
    if (size > 4'096) continue;
    const std::vector<std::uint8_t> events(3 * size, 0xa5);
    tev_data_serializer_t serializer{&types, buffer.data(), buffer.size(), 0};
    tev_data_serializer_write_events_ts(&serializer, 0, static_cast<std::uint8_t>(type),
                                        events.data(), 3, 1);
    check(serializer.used <= serializer.capacity, "never beyond the end");
  }
}

void describe(const Lines& lines, std::size_t capacity) {
  const tev::test::Owned<tev_type_system_t, tev_destroy_type_system> types(
      tev_create_type_system());
  tev_schema_t* const schema =
      tev_type_system_add_schema(types.get(), lines[0].c_str(), 1, nullptr);
  for (const auto& line : lines) addType(*schema, line);
  tev_type_system_update_md5_hashes(types.get());
  serialize(*types, capacity);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tev::test::CapturedLog formatted;
  const Lines lines = tev::test::linesOf(data, size);
  fillDictionary(lines);
  loadSets(lines);
  describe(lines, size);
  readSources(lines[0].c_str());
  filter(lines.back().c_str(), lines[0].c_str());
  matchSlot(data, size, lines[0].c_str());
  return 0;
}
