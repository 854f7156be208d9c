// Input: a counter's name in the first line, then the lines of a set.
#include <algorithm>

#include "tests/fuzz/fuzz.h"
#include "tev/counter_set.h"

using tev::test::check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  auto lines = tev::test::linesOf(data, size);
  const std::string name = lines[0];
  lines.erase(lines.begin());

  tev::ProviderCounterSet set;
  const bool loaded = set.loadFromLines(lines, {"unit", "group"});
  const auto patterns = set.getCounterPatterns();
  check(loaded == !patterns.empty() && loaded == set.isInitialized(), "patterns make a set");
  check(patterns.size() <= lines.size(), "at most one pattern to a line");
  check(std::adjacent_find(patterns.begin(), patterns.end(), std::greater_equal<>()) ==
            patterns.end(),
        "patterns are in order, each once");

  for (const auto& pattern : patterns) set.shouldIncludeCounter(name, pattern);
  check(set.shouldIncludeCounter(name) || set.getCounterAlias(name).empty(),
        "only what is included has an alias");
  for (const auto& entry : set.getUserTagValues())
    check(entry.first == "unit" || entry.first == "group", "only the tags asked for");
  set.printConfiguration();
  return 0;
}
