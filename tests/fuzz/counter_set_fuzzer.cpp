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

  bool included = false;
  for (const auto& pattern : patterns) {
    check(!pattern.empty() && pattern.front() != '#', "neither empty nor a comment");
    check(pattern.find('=') == std::string::npos, "the first '=' separates");
    check(tev::support::trimView(pattern, " \t\r\n") == pattern, "patterns are trimmed");
    included = included || set.shouldIncludeCounter(name, pattern);
    if (pattern.find_first_of("^$") == std::string::npos)
      check(set.shouldIncludeCounter(pattern), "a plain pattern matches itself");
  }
  check(included == set.shouldIncludeCounter(name), "any pattern will do");
  check(included || set.getCounterAlias(name).empty(), "only what is included has an alias");
  for (const auto& entry : set.getUserTagValues())
    check(entry.first == "unit" || entry.first == "group", "only the tags asked for");
  set.printConfiguration();
  return 0;
}
