#include "host/cli/config_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "host/cli/config_file.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

bool isRepeated(const CLI::Option& option) {
  return option.get_multi_option_policy() == CLI::MultiOptionPolicy::TakeAll;
}

// The words of one entry. Flags, and options that need no value, are true or false.
std::vector<std::string> wordsOf(const ConfigEntry& entry, const CLI::Option& option) {
  const std::string name = "--" + entry.key;
  const std::string& first = entry.values.front();
  if (entry.values.size() > 1 && !isRepeated(option))
    throw UsageError(entry.key + ": a single value is needed");
  if (option.get_expected_min() == 0 && (first == "true" || first == "false"))
    return first == "true" ? std::vector{name} : std::vector<std::string>{};
  if (option.get_expected_max() == 0)
    throw UsageError(
        fmt::format("{} = {}: true or false is needed", entry.key, asPrintable(first)));
  std::vector<std::string> words;
  for (const std::string& value : entry.values) {
    if (value.empty()) throw UsageError(entry.key + ": a value is needed");
    words.push_back(name + "=" + value);
  }
  return words;
}

// Whether the command line says something else than this word of the file.
bool isOverridden(const std::string& word, const CLI::Option& option, Parser& first) {
  if (!isRepeated(option)) return false;  // the last one is used
  if (option.check_name("--option")) {
    const std::string text = word.substr(word.find('=') + 1);
    return std::ranges::any_of(first.line.run.plugin.options, [&](const auto& given) {
      return text.starts_with(given.first + "=");
    });
  }
  return first.isGiven(option.get_name());
}

}  // namespace

Configured withConfig(const std::vector<std::string>& words, Parser& first,
                      const Companions& companions) {
  const std::string& path = first.given.config;
  Parser run;
  run.parse({"run"});
  std::set<std::string> seen;
  std::vector<std::string> all{"run"};
  std::vector<std::string> result{words.at(0)};
  for (const ConfigEntry& entry : readConfigFile(path)) {
    const CLI::Option* const option = run.command().get_option_no_throw("--" + entry.key);
    if (!option || entry.key == "help" || entry.key == "config")
      refuseLine(path, entry.line, fmt::format("unknown key {}", asPrintable(entry.key)));
    if (!seen.insert(entry.key).second && !isRepeated(*option))
      refuseLine(path, entry.line, entry.key + " is given twice");
    const CLI::Option* const own = first.command().get_option_no_throw("--" + entry.key);
    const bool is_used = own && own->get_description() == option->get_description();
    try {
      for (const std::string& word : wordsOf(entry, *option)) {
        Parser alone;
        alone.parse({"run", word});
        alone.readPlugin(companions);
        all.push_back(word);
        if (is_used && !isOverridden(word, *option, first)) result.push_back(word);
      }
    } catch (const UsageError& error) {
      refuseLine(path, entry.line, error.what());
    }
  }
  Parser together;
  try {
    together.parse(all);
    together.readRest();
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}: {}", asPrintable(path), error.what()));
  }
  result.insert(result.end(), words.begin() + 1, words.end());
  return {std::move(result), std::move(together.line.run)};
}

}  // namespace tev::host
