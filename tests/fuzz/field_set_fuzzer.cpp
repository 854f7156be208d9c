// Input: a line with a type's name, a line with a field's, then the lines of a set.
#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tev/field_set.h"

using tev::test::check;

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
  for (const auto& pattern : types)
    check(set.isTypeOfInterest(pattern), "a pattern matches itself");
  set.shouldIncludeField(type, field);
  const auto fields = set.getFieldPatterns(type);

  for (auto& line : lines) line += "\r";
  tev::ProviderFieldSet same;
  same.loadFromLines(lines);
  check(same.getTypePatterns() == types && same.getFieldPatterns(type) == fields,
        "line ends do not count");
  set.printConfiguration();
  return 0;
}
