// Input: keys and values of a dictionary, a line each; every line is also taken as a list of
// sources.
#include <cstring>
#include <map>
#include <optional>

#include "tests/fuzz/fuzz.h"
#include "tev/dict.h"
#include "tev/sources.h"

namespace {

using tev::test::check;
using Model = std::map<std::string, std::optional<std::string>>;

void checkDictionary(const tev_custom_options* dict, const Model& model) {
  for (const auto& [key, value] : model) {
    const char* const found = tev_dict_get(dict, key.c_str());
    check(value ? found && *value == found : !found, "what was added last is found");
  }
  std::size_t entries = 0;
  tev_dict_enum(
      dict,
      [](const char*, const char*, void* count) {
        ++*static_cast<std::size_t*>(count);
        return true;
      },
      &entries);
  check(entries == model.size(), "each key once");
}

void readSources(const char* text) {
  // Long ranges are read in full: no more of them than time allows.
  std::size_t digits = 0;
  for (const char* at = text; *at; ++at) digits += *at >= '0' && *at <= '9';
  if (digits > 5) return;
  tev_source_array_t* const array = tev_create_source_array_from_string(text);
  if (!array) return;
  check(array->count <= TEV_MAX_SOURCES, "no more than there are numbers for");
  for (std::uint32_t i = 0; i < array->count; ++i) {
    const tev_source_t& source = *array->sources[i];
    check(std::memchr(source.id, '\0', sizeof source.id), "identities end");
    check(std::memchr(source.tag, '\0', sizeof source.tag), "tags end");
  }
  tev_destroy_source_array(array);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  const auto lines = tev::test::linesOf(data, size);
  tev_custom_options* const dict = tev_dict_create();
  Model model;
  for (std::size_t i = 0; i < lines.size(); i += 2) {
    const char* const key = lines[i].c_str();
    const char* const value = i + 1 < lines.size() ? lines[i + 1].c_str() : nullptr;
    check(tev_dict_add(dict, key, value), "memory suffices");
    model[key] = value ? std::optional<std::string>(value) : std::nullopt;
    readSources(key);
  }
  checkDictionary(dict, model);
  tev_custom_options* const copy = tev_dict_dup(dict);
  tev_dict_dump(dict, "fuzz");
  tev_dict_delete(dict);
  checkDictionary(copy, model);
  tev_dict_delete(copy);
  return 0;
}
