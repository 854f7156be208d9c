// Input: a line with a type's name, a line with a field's, then the lines of a set.
#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tev/field_set.h"
#include "tev/filters.h"

namespace {

using tev::test::check;

bool tokenMatches(const std::string& pattern, const std::string& field) {
  const std::string token = pattern.substr(0, TEV_FILTER_TOKEN_SIZE - 1);
  return tev_filter_match_single_token(field.c_str(), token.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  auto lines = tev::test::linesOf(data, size);
  lines.resize(std::max<std::size_t>(lines.size(), 2));
  const std::string type = lines[0];
  const std::string field = lines[1];
  lines.erase(lines.begin(), lines.begin() + 2);

  tev::ProviderFieldSet set;
  const bool loaded = set.loadFromLines(lines);
  const auto types = set.getTypePatterns();
  check(loaded == !types.empty() && loaded == set.isInitialized(), "type patterns make a set");
  for (const auto& pattern : types) {
    check(!pattern.empty() && pattern.find(',') == std::string::npos, "commas separate patterns");
    check(tev::support::trimView(pattern, " \t\r\n") == pattern, "patterns are trimmed");
    check(set.isTypeOfInterest(pattern), "a pattern matches itself");
  }

  const bool has_fallback = std::count(types.begin(), types.end(), "default") != 0;
  const bool judged = !type.empty() && set.isTypeOfInterest(type);
  const bool included = set.shouldIncludeField(type, field);
  check(judged || has_fallback || !included, "nothing without a section for it");
  const auto fields = set.getFieldPatterns(type);
  if (fields.empty())
    check(included == (judged || has_fallback), "no field patterns: all fields, or no section");
  else
    check(included == std::any_of(fields.begin(), fields.end(),
                                  [&](const auto& p) { return tokenMatches(p, field); }),
          "any field pattern will do");

  for (auto& line : lines) line += "\r";
  tev::ProviderFieldSet same;
  same.loadFromLines(lines);
  check(same.getTypePatterns() == types && same.getFieldPatterns(type) == fields,
        "line ends do not count");
  set.printConfiguration();
  return 0;
}
