// Input: keys and values of a dictionary, a line each; every line is also taken as a list of
// sources.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "tests/fuzz/fuzz.h"
#include "tev/dict.h"
#include "tev/sources.h"

namespace {

using tev::test::check;
constexpr std::uint64_t kLongestRange = 1'000;  // what is longer takes too long

// The distance between the numbers of a text, or from 1 in a text that is not a range. This is the
// largest number of sources that the text requests.
std::uint64_t spanOf(const char* text) {
  std::uint64_t least = std::strchr(text, '-') ? UINT64_MAX : 1;
  std::uint64_t most = 1;
  while (*text) {
    if (!std::isdigit(static_cast<unsigned char>(*text))) {
      ++text;
      continue;
    }
    char* end = nullptr;
    const std::uint64_t number = std::strtoull(text, &end, 10);
    least = std::min(least, number);
    most = std::max(most, number);
    text = end;
  }
  return most > least ? most - least : 0;
}

void readSources(const char* text) {
  if (spanOf(text) > kLongestRange) return;
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
  for (std::size_t i = 0; i < lines.size(); i += 2) {
    const char* const key = lines[i].c_str();
    const char* const value = i + 1 < lines.size() ? lines[i + 1].c_str() : nullptr;
    check(tev_dict_add(dict, key, value), "memory suffices");
    const char* const found = tev_dict_get(dict, key);
    check(found ? value && std::strcmp(found, value) == 0 : !value, "what was added last is found");
    readSources(key);
  }
  tev_custom_options* const copy = tev_dict_dup(dict);
  tev_dict_dump(dict, "fuzz");
  tev_dict_delete(dict);
  for (const auto& line : lines) tev_dict_get(copy, line.c_str());
  tev_dict_delete(copy);
  return 0;
}
