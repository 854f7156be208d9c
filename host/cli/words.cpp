#include "host/cli/words.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "host/cli/commands.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// Refuses an option without its value and a flag with a value. The parser would accept the next
// option as the value, and the value for the flag.
void refuseOddValues(std::span<const char* const> words, const CLI::App& app) {
  const auto any = [&](std::string_view word, auto&& holds) {
    return std::ranges::any_of(commandsOf(app), [&](const CLI::App* command) {
      const CLI::Option* const option = command->get_option_no_throw(std::string(word));
      return option && holds(*option);
    });
  };
  const auto takes_value = [](const CLI::Option& one) { return one.get_expected_min() > 0; };
  const auto is_flag = [](const CLI::Option& one) { return one.get_expected_max() == 0; };
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (!word.starts_with("--")) continue;
    const std::size_t equals = word.find('=');
    const bool empty = equals == word.size() - 1;
    const bool followed =
        equals != std::string_view::npos ||
        (i + 1 < words.size() && !std::string_view(words[i + 1]).starts_with("--"));
    const std::string_view name = word.substr(0, equals);
    if (equals != std::string_view::npos && any(name, is_flag))
      throw UsageError(asPrintable(name) + " takes no value");
    if (empty || (!followed && any(name, takes_value)))
      throw UsageError(asPrintable(name) + " needs a value");
  }
}

// Names an unknown command in the error, which the parser does not do.
void refuseUnknownCommand(std::span<const char* const> words) {
  if (words.empty()) throw UsageError(fmt::format("a command is needed: {}", commandNames()));
  const std::string_view first = words[0];
  if (!first.starts_with("-") && !commandNamed(first))
    throw UsageError(
        fmt::format("unknown command '{}': {} is needed", asPrintable(words[0]), commandNames()));
}

}  // namespace

void refuseOddWords(std::span<const char* const> words, const CLI::App& app) {
  refuseUnknownCommand(words);
  refuseOddValues(words, app);
}

}  // namespace tev::host
