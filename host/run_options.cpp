#include "host/run_options.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>

#include "host/errors.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr char kLibraryPathKey[] = "multipath-vuna-lib-path";
constexpr char kOtherLibraryPathKey[] = "vuna-telemetry-lib-path";
constexpr char kUpdateKey[] = "update";
constexpr double kMaxSeconds = 1e9;
constexpr std::uint64_t kMaxUpdate = 86'400'000;  // a day
constexpr std::uint64_t kMaxBufferBytes = std::uint64_t{1} << 40;

constexpr char kProgramText[] =
    "A reference host for provider plug-ins: loads one, has it sample, and shows what it delivers.";

constexpr char kExamples[] = R"(Examples:
  tev-host run --simulate
      live table of the simulated adapters; Ctrl-C ends it
  tev-host run --simulate=netdev --format jsonl --samples 5
      five samples of every network interface of this machine, as JSON lines
  tev-host run --simulate --option multipath-sample-interval-usec=1000 --duration 10 --output run.jsonl
      ten seconds at 1 kHz, into a file
  tev-host run --simulate --fset types.fset --cset counters.cset --filter -rdma2
      some types, fields and counters, of all devices but rdma2
  tev-host run --option multipath-vuna-lib-path=/path/to/libvuna_telemetry.so
      a real device SDK

Exit code: 0 fine, 1 the plug-in refused or the run failed, 2 wrong usage.)";

// The texts as they were given.
struct Given {
  std::string plugin;
  std::vector<std::string> options;
  std::string scenario;
  std::string log_level;
  std::string buffer_size;
  std::string update;
  std::string format;
  std::string output;
  std::string duration;
  std::string samples;
  SelectionOptions selection;
  bool jitter = false;
};

template <class Number>
std::optional<Number> parseNumber(std::string_view text) {
  Number number{};
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || rest != end) return std::nullopt;
  return number;
}

[[noreturn]] void refuse(const char* option, const std::string& text, const std::string& wanted) {
  throw UsageError(fmt::format("{} {}: {}", option, text.empty() ? "''" : text, wanted));
}

std::uint64_t wholeNumber(const char* option, const std::string& text, std::uint64_t most) {
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number || *number == 0 || *number > most)
    refuse(option, text, fmt::format("a whole number from 1 to {} is needed", most));
  return *number;
}

std::uint64_t byteSize(const char* option, const std::string& text) {
  std::string_view digits = text;
  int shift = 0;
  if (!digits.empty()) {
    constexpr std::string_view kSuffixes = "kKmMgG";
    const std::size_t suffix = kSuffixes.find(digits.back());
    if (suffix != std::string_view::npos) {
      shift = 10 * (1 + static_cast<int>(suffix) / 2);
      digits.remove_suffix(1);
    }
  }
  const auto number = parseNumber<std::uint64_t>(digits);
  if (!number || *number == 0 || *number > kMaxBufferBytes >> shift)
    refuse(option, text, "a number of bytes is needed, like 65536, 64K, 1M or 2G");
  return *number << shift;
}

std::chrono::nanoseconds seconds(const char* option, const std::string& text) {
  const auto number = parseNumber<double>(text);
  if (!number || !(*number > 0 && *number <= kMaxSeconds))
    refuse(option, text, "a number of seconds above 0 is needed");
  return std::chrono::nanoseconds(std::llround(*number * 1e9));
}

Format formatNamed(const std::string& text) {
  if (text == "table") return Format::table;
  if (text == "jsonl") return Format::jsonl;
  if (text == "csv") return Format::csv;
  refuse("--format", text, "table, jsonl or csv is needed");
}

std::optional<std::uint32_t> logLevelNamed(const std::string& text) {
  if (text == "error") return TEV_LEVEL_ERROR;
  if (text == "warning") return TEV_LEVEL_WARNING;
  if (text == "info") return TEV_LEVEL_INFO;
  if (text == "debug") return TEV_LEVEL_DEBUG;
  const auto number = parseNumber<std::uint32_t>(text);
  return number && *number < TEV_LEVEL_UNSET ? number : std::nullopt;
}

void readLogLevel(const std::string& text, PluginOptions& plugin) {
  plugin.log_level = TEV_LEVEL_WARNING;
  if (!text.empty()) {
    const auto level = logLevelNamed(text);
    if (!level) refuse("--log-level", text, "error, warning, info, debug or a number is needed");
    plugin.log_level = *level;
    plugin.log_level_given = true;
  } else if (const char* const variable = tev_getenv("TEV_API_LOG_LEVEL")) {
    if (const auto level = logLevelNamed(variable)) plugin.log_level = *level;
    plugin.log_level_given = true;
  }
}

void readPluginOptions(const std::vector<std::string>& texts, PluginOptions& plugin) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0)
      refuse("--option", text, "KEY=VALUE is needed, like multipath-devices=rdma0,rdma1");
    plugin.options.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  }
}

bool hasOption(const PluginOptions& plugin, std::string_view key) {
  return std::ranges::any_of(plugin.options, [&](const auto& entry) { return entry.first == key; });
}

// What the user said about a key goes before what the other options imply.
void addImplied(PluginOptions& plugin, const char* key, const std::string& value) {
  if (!hasOption(plugin, key)) plugin.options.emplace_back(key, value);
}

void readScenario(const std::string& scenario, PluginOptions& plugin,
                  const Companions& companions) {
  plugin.simulated = true;
  addImplied(plugin, kLibraryPathKey, companions.simulator.string());
  if (scenario.empty()) return;
  std::error_code error;
  const bool built_in = scenario == "default" || scenario == "netdev";
  if (!built_in && !std::filesystem::exists(scenario, error))
    refuse("--simulate", scenario, "neither default nor netdev, and there is no such file");
  plugin.simulator_scenario = scenario;
}

void addPluginOptions(CLI::App& command, Given& given) {
  command
      .add_option("--plugin", given.plugin,
                  "Plug-in to load (default: libevents_multipath_provider.so that came with this "
                  "program)")
      ->type_name("PATH");
  command.add_option("--option", given.options, "Option for the plug-in; may be repeated")
      ->type_name("KEY=VALUE")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  command
      .add_option("--simulate", given.scenario,
                  "Sample the bundled simulator instead of adapters: 'default', 'netdev' (this "
                  "machine's network interfaces) or a scenario file")
      ->type_name("[=SCENARIO]")
      ->expected(0, 1);
  command
      .add_option("--log-level", given.log_level,
                  "Log lines to show on standard error: error, warning, info, debug or a number "
                  "(default: $TEV_API_LOG_LEVEL, else warning)")
      ->type_name("LEVEL");
}

void addRunOptions(CLI::App& command, Given& given) {
  command
      .add_option("--format", given.format,
                  "table, jsonl or csv (default: table on a terminal, else jsonl)")
      ->type_name("FORMAT");
  command.add_option("--output", given.output, "Write to this file instead of standard output")
      ->type_name("FILE");
  command
      .add_option("--fset", given.selection.field_set,
                  "Write the types and fields that this field-set file names, and no others")
      ->type_name("FILE");
  command
      .add_option("--cset", given.selection.counter_set,
                  "Write the counters that this counter-set file names, under their aliases")
      ->type_name("FILE");
  command
      .add_option("--filter", given.selection.filter,
                  "Write the devices whose names pass, like eth+np0 or -lo")
      ->type_name("EXPRESSION");
  command.add_option("--duration", given.duration, "Stop after this time; fractions are fine")
      ->type_name("SECONDS");
  command.add_option("--samples", given.samples, "Stop after so many samples of each device")
      ->type_name("N");
  command.add_flag("--jitter", given.jitter,
                   "Measure how evenly the first device is sampled and what a pass costs, beside a "
                   "bare loop that sleeps");
  command
      .add_option("--update", given.update,
                  "Time from one fetch of events to the next (default 1000); the plug-in gets it "
                  "as option 'update', unless that is given")
      ->type_name("MILLISECONDS");
  command
      .add_option("--buffer-size", given.buffer_size,
                  "Size of the serializer's buffer; K, M and G are understood (default 1M)")
      ->type_name("BYTES");
}

void readRunOptions(const Given& given, RunOptions& options) {
  if (!given.format.empty()) options.format = formatNamed(given.format);
  options.output = given.output;
  options.selection = given.selection;
  options.jitter = given.jitter;
  if (!given.duration.empty()) options.duration = seconds("--duration", given.duration);
  if (!given.samples.empty())
    options.samples =
        wholeNumber("--samples", given.samples, std::numeric_limits<std::int64_t>::max());
  if (!given.update.empty())
    options.update = std::chrono::milliseconds(wholeNumber("--update", given.update, kMaxUpdate));
  if (!given.buffer_size.empty())
    options.buffer_bytes = byteSize("--buffer-size", given.buffer_size);
}

std::vector<const CLI::App*> commandsOf(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

// The parser takes whatever follows an option for its value, the next option included.
void refuseMissingValues(std::span<const char* const> words, const CLI::App& app) {
  const auto takes_value = [&](std::string_view word) {
    return std::ranges::any_of(commandsOf(app), [&](const CLI::App* command) {
      const CLI::Option* const option = command->get_option_no_throw(std::string(word));
      return option && option->get_expected_min() > 0;
    });
  };
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string_view word = words[i];
    if (!word.starts_with("--")) continue;
    const std::size_t equals = word.find('=');
    const bool empty = equals == word.size() - 1;
    const bool followed = equals != std::string_view::npos || i + 1 == words.size() ||
                          !std::string_view(words[i + 1]).starts_with("--");
    if (empty || (!followed && takes_value(word)))
      throw UsageError(fmt::format("{} needs a value", word.substr(0, equals)));
  }
}

// The parser would only say that there is no command.
void refuseUnknownCommand(std::span<const char* const> words, const CLI::App& app) {
  if (words.empty() || std::string_view(words[0]).starts_with("-")) return;
  if (std::ranges::none_of(commandsOf(app), [&](const CLI::App* command) {
        return command->get_name() == words[0];
      }))
    throw UsageError(fmt::format("unknown command '{}': run or schema is needed", words[0]));
}

// The app holds references to `given`.
void describe(CLI::App& app, Given& given) {
  app.set_version_flag("--version", "tev-host " TEV_VERSION);
  app.require_subcommand(1);
  app.footer(kExamples);
  app.get_formatter()->column_width(28);
  app.option_defaults()->take_last();

  CLI::App* const run =
      app.add_subcommand("run", "Sample, and write the events out until the end or Ctrl-C");
  addPluginOptions(*run, given);
  addRunOptions(*run, given);
  run->footer(kExamples);

  CLI::App* const schema =
      app.add_subcommand("schema", "Show the types of events that the plug-in would deliver");
  addPluginOptions(*schema, given);
}

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, const Companions& companions) {
  Given given;
  CLI::App app(kProgramText, "tev-host");
  describe(app, given);

  const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0);
  refuseUnknownCommand(words, app);
  refuseMissingValues(words, app);
  CommandLine line;
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& answer) {
    app.exit(answer);
    return line;
  } catch (const CLI::ExtrasError&) {
    std::vector<std::string> extras = app.remaining(true);
    throw UsageError(fmt::format("not expected here: {}", fmt::join(extras, " ")));
  } catch (const CLI::ParseError& error) {
    throw UsageError(error.what());
  }

  const CLI::App& command = *app.get_subcommands().front();
  line.command = command.get_name() == "run" ? Command::run : Command::schema;
  readRunOptions(given, line.run);

  PluginOptions& plugin = line.run.plugin;
  plugin.path = given.plugin.empty() ? companions.plugin.string() : given.plugin;
  readPluginOptions(given.options, plugin);
  if (command.count("--simulate") > 0) readScenario(given.scenario, plugin, companions);
  plugin.usual_devices = given.plugin.empty() && !hasOption(plugin, kLibraryPathKey) &&
                         !hasOption(plugin, kOtherLibraryPathKey);
  addImplied(plugin, kUpdateKey, fmt::format("{}", line.run.update.count()));
  readLogLevel(given.log_level, plugin);
  return line;
}

}  // namespace tev::host
