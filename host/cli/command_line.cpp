#include "host/cli/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <limits>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/support/errors.h"
#include "host/support/option_text.h"
#include "host/support/text.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

constexpr char kLibraryPathKey[] = "multipath-vuna-lib-path";
constexpr char kOtherLibraryPathKey[] = "vuna-telemetry-lib-path";
constexpr char kUpdateKey[] = "update";
constexpr std::uint64_t kMaxUpdate = 86'400'000;      // a day
constexpr std::uint64_t kMaxRotation = 365 * 86'400;  // seconds
constexpr std::uint64_t kMaxKept = 1'000'000;         // files

constexpr std::chrono::milliseconds kLeastMeasuring{100};
constexpr std::chrono::hours kMostMeasuring{1};

constexpr char kProgramText[] =
    "A reference host: it loads a provider plug-in, starts sampling, and writes the events.";

constexpr char kExamples[] = R"(Examples:
  tev-host run --simulate
      live table of the simulated adapters; Ctrl-C ends it
  tev-host top --simulate
      the same on the full screen: the worst plane of each adapter, with keys
  tev-host run --simulate=netdev --format jsonl --samples 5
      five samples of every network interface of this machine, as JSON lines
  tev-host run --simulate --option multipath-sample-interval-usec=1000 --duration 10 --output run.jsonl
      ten seconds at 1 kHz, into a file
  tev-host run --simulate --fset types.fset --cset counters.cset --filter -rdma2
      selected types, fields and counters of all devices except rdma2
  tev-host run --simulate --option multipath-sample-interval-usec=1000 --window 1000 --format jsonl
      a record per series and second, with the highest rate of any millisecond
  tev-host run --option multipath-vuna-lib-path=/path/to/libvuna_telemetry.so
      a real device SDK
  tev-host check --simulate --measure 2
      what would be sampled, how fast the counters move, and how long a pass takes

Exit code: 0 success; 1 the plug-in refused, the run failed or would fail, or no sample was read;
2 wrong usage; 3 samples are missing (with --strict).)";

const OutputFormat* formatNamed(const char* option, const std::string& text) {
  const OutputFormat* const format = findOutputFormat(text);
  if (!format) refuse(option, text, outputFormatNames() + " is needed");
  return format;
}

bool isJson(const char* option, const std::string& text) {
  if (text != "text" && text != "json") refuse(option, text, "text or json is needed");
  return text == "json";
}

std::chrono::nanoseconds measuringTime(const char* option, const std::string& text) {
  try {
    const auto time = seconds(option, text);
    if (time >= kLeastMeasuring && time <= kMostMeasuring) return time;
  } catch (const UsageError&) {  // it names another range
  }
  refuse(option, text, "a number of seconds is needed, from 0.1 to 3600");
}

std::string formatHelp() {
  std::string help = outputFormatNames() + " (default: table on a terminal, else jsonl)";
  for (const OutputFormat& format : outputFormats())
    help += fmt::format("\n{:<6}{}", format.name, format.help);
  return help;
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

bool hasOption(const PluginOptions& plugin, std::string_view key) {
  return std::ranges::any_of(plugin.options, [&](const auto& entry) { return entry.first == key; });
}

// Adds an option that another one implies. A value that the user gives takes precedence.
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
  if (!built_in &&
      (!std::filesystem::exists(scenario, error) || std::filesystem::is_directory(scenario, error)))
    refuse("--simulate", scenario, "neither default nor netdev, and there is no such file");
  plugin.simulator_scenario = scenario;
}

void readCapture(const CaptureOptions& capture, const CLI::App& command, RunOptions& run) {
  const auto isGiven = [&command](const char* name) {
    const CLI::Option* const option = command.get_option_no_throw(name);
    return option && option->count() > 0;
  };
  if (isGiven("--capture") && capture.path.empty())
    refuse("--capture", capture.path, "a path is needed");
  if (isGiven("--sync") && capture.path.empty()) throw UsageError("--sync needs --capture");
  if (capture.path.empty() && (capture.rotates() || capture.keep))
    throw UsageError(fmt::format("{} needs --capture", capture.keep ? "--keep" : "--rotate"));
  if (capture.keep && !capture.rotates()) throw UsageError("--keep needs --rotate");
  if (!capture.path.empty()) run.capture = capture;
}

// `top` shows a plug-in or files, and each has its own options.
void expectOneSource(const CLI::App& top, bool plays_files) {
  for (const char* const option : {"--plugin", "--option", "--simulate", "--link-speed"})
    if (plays_files && top.get_option(option)->count() > 0)
      throw UsageError(fmt::format("{} cannot be used with capture files", option));
  for (const char* const option : {"--from", "--to", "--speed"})
    if (!plays_files && top.get_option(option)->count() > 0)
      throw UsageError(fmt::format("{} needs a capture file", option));
}

void expectPattern(const char* option, const std::string& pattern) {
  if (pattern.empty()) refuse(option, pattern, "a name, ^PREFIX or SUFFIX$ is needed");
}

// Texts that can be interpreted only when all options are known.
struct Given {
  std::optional<std::string> plugin;
  std::string scenario;
  std::string log_level;
  CaptureOptions capture;
};

// Adds an option. `read` converts its text to its value.
template <class Value, class Read>
CLI::Option* addParsed(CLI::App& command, const char* name, Value& value, Read read,
                       const std::string& description) {
  return command.add_option_function<std::string>(
      name, [&value, read, name](const std::string& text) { value = read(name, text); },
      description);
}

// Adds an option that may be given several times.
CLI::Option* addRepeated(CLI::App& command, const char* name, std::vector<std::string>& values,
                         const std::string& description) {
  return command.add_option(name, values, description)
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
}

void addPluginPath(CLI::App& command, Given& given) {
  command
      .add_option("--plugin", given.plugin,
                  "Plug-in to load (default: the libevents_multipath_provider.so that was built or "
                  "installed with this program)")
      ->type_name("PATH");
}

void addPluginOptions(CLI::App& command, PluginOptions& plugin, Given& given) {
  addPluginPath(command, given);
  command
      .add_option_function<std::vector<std::string>>(
          "--option",
          [&plugin](const std::vector<std::string>& texts) {
            for (const std::string& text : texts)
              plugin.options.push_back(keyAndValue("--option", text));
          },
          "Option for the plug-in; may be repeated; 'tev-host options' lists them")
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

void addUpdate(CLI::App& command, RunOptions& options) {
  addParsed(
      command, "--update", options.update,
      [](const char* name, const std::string& text) {
        return std::chrono::milliseconds(wholeNumber(name, text, kMaxUpdate));
      },
      "Time from one fetch of events to the next (default 1000); also the plug-in's option "
      "'update', unless --option gives it")
      ->type_name("MILLISECONDS");
}

void addLinkSpeed(CLI::App& command, RunOptions& options) {
  addParsed(command, "--link-speed", options.link_gbits, gbits,
            "Speed of every device's link, instead of the one that the kernel reports; the longest "
            "interval that follows counters of bytes depends on it")
      ->type_name("GBITS");
}

// Which events, and what their fields are.
void addSets(CLI::App& command, RunOptions& options) {
  command
      .add_option("--fset", options.selection.field_set,
                  "Use only the types and fields that this field-set file names")
      ->type_name("FILE");
  command
      .add_option("--cset", options.selection.counter_set,
                  "Use only the counters that this counter-set file names, under their aliases")
      ->type_name("FILE");
  addRepeated(command, "--filter", options.selection.filters,
              "Use only the devices whose names pass this filter, for example eth+np0 or -lo; if "
              "repeated, a device needs to pass one of them. A part of a name is sufficient: rdma1 "
              "also means rdma10")
      ->type_name("EXPRESSION");
  addRepeated(command, "--counter", options.counting.counters,
              "These fields are counters: NAME, ^PREFIX or SUFFIX$; may be repeated (default: the "
              "samples decide)")
      ->type_name("PATTERN");
  addRepeated(command, "--gauge", options.counting.gauges,
              "These fields are gauges, which have neither a rate nor a sum; takes precedence over "
              "--counter; may be repeated")
      ->type_name("PATTERN");
}

// What `run` and `top` have in common.
void addSelection(CLI::App& command, RunOptions& options) {
  addSets(command, options);
  addParsed(command, "--duration", options.duration, seconds,
            "Stop after this time; may be a fraction")
      ->type_name("SECONDS");
  addUpdate(command, options);
  addParsed(command, "--buffer-size", options.buffer_bytes, byteSize,
            "Size of the serializer's buffer; K, M and G stand for powers of 1024 (default 1M)")
      ->type_name("BYTES");
  addLinkSpeed(command, options);
}

SymbolSet symbolSet(const char* option, const std::string& text) {
  const auto set = symbolSetNamed(text);
  if (!set) refuse(option, text, symbolSetNames() + " is needed");
  return *set;
}

void addTimeSpan(CLI::App& command, TimeSpan& span) {
  addParsed(command, "--from", span.from_usec, momentUsec,
            "Only events from this time on: 2026-01-31T12:00:00Z, or seconds since 1970")
      ->type_name("TIME");
  addParsed(command, "--to", span.to_usec, momentUsec, "Only events before this time")
      ->type_name("TIME");
}

double playSpeed(const char* option, const std::string& text) {
  const double speed = std::chrono::duration<double>(seconds(option, text)).count();
  if (speed < 0.01 || speed > 10'000)
    refuse(option, text, "a number is needed, from 0.01 to 10000");
  return speed;
}

void addTopOptions(CLI::App& command, RunOptions& options, DecodeOptions& decode) {
  command.add_option("FILE", decode.files, "Capture files to play, instead of a plug-in")
      ->type_name("");
  addTimeSpan(command, decode.span);
  addParsed(command, "--speed", decode.speed, playSpeed,
            "With FILE: recorded seconds per second (default 1)")
      ->type_name("N");
  addSelection(command, options);
  addParsed(command, "--symbols", options.symbols, symbolSet,
            "Characters of the traces: " + symbolSetNames() +
                " (default: braille on a terminal with UTF-8, else plain)")
      ->type_name("SET");
}

CaptureSync captureSync(const char* option, const std::string& text) {
  if (text == "none") return CaptureSync::none;
  if (text == "file") return CaptureSync::file;
  if (text == "update") return CaptureSync::update;
  refuse(option, text, "none, file or update is needed");
}

// A size ("100M"), or a time ("1h").
void readRotation(const char* option, const std::string& text, CaptureOptions& capture) {
  constexpr std::pair<char, int> kUnits[] = {{'s', 1}, {'m', 60}, {'h', 3600}, {'d', 86'400}};
  for (const auto& [unit, length] : kUnits) {
    if (!text.ends_with(unit)) continue;
    const auto count = wholeNumber(option, text.substr(0, text.size() - 1), kMaxRotation);
    if (count > kMaxRotation / static_cast<std::uint64_t>(length))
      refuse(option, text, "at most 365 days are possible");
    capture.rotate_time = std::chrono::seconds(count * static_cast<std::uint64_t>(length));
    return;
  }
  capture.rotate_bytes = byteSize(option, text);
}

void addCaptureOptions(CLI::App& command, CaptureOptions& capture) {
  command
      .add_option("--capture", capture.path,
                  "Also record all events in this file, for tev-host decode and info; it must not "
                  "exist")
      ->type_name("FILE");
  command
      .add_option_function<std::string>(
          "--rotate",
          [&capture](const std::string& text) { readRotation("--rotate", text, capture); },
          "Begin a new capture file at this size (K, M, G) or after this time (s, m, h, d); each "
          "has the time and its number in its name")
      ->type_name("SIZE|TIME");
  addParsed(
      command, "--keep", capture.keep,
      [](const char* name, const std::string& text) { return wholeNumber(name, text, kMaxKept); },
      "With --rotate: keep this number of files, and remove older ones")
      ->type_name("N");
  addParsed(
      command, "--sync", capture.sync, captureSync,
      "When the capture is forced to the disk: none, file (each complete file, the default) or "
      "update (each --update)")
      ->type_name("POLICY");
}

void addWritingOptions(CLI::App& command, RunOptions& options) {
  addParsed(command, "--format", options.format, formatNamed, formatHelp())->type_name("FORMAT");
  command.add_option("--output", options.output, "Write to this file instead of standard output")
      ->type_name("FILE");
  command
      .add_flag(
          "--rates", options.rates,
          "With jsonl and csv: add to each event its kind and number, and to each counter its "
          "64-bit total, its rate, and a mark when these are not certain")
      ->disable_flag_override();
  addParsed(
      command, "--window", options.window,
      [](const char* name, const std::string& text) {
        return std::chrono::milliseconds(wholeNumber(name, text, kMaxUpdate));
      },
      "With jsonl and csv: instead of the events, write the figures of each series per window of "
      "this length, among them the highest rate of a single sample")
      ->type_name("MILLISECONDS");
  addParsed(
      command, "--samples", options.samples,
      [](const char* name, const std::string& text) {
        return wholeNumber(name, text, std::numeric_limits<std::int64_t>::max());
      },
      "Stop after this number of samples of each device")
      ->type_name("N");
}

void addDecodeOptions(CLI::App& command, RunOptions& options, DecodeOptions& decode) {
  command.add_option("FILE", decode.files, "Capture files, which are read as one")
      ->required()
      ->type_name("");
  addWritingOptions(command, options);
  addSets(command, options);
  addTimeSpan(command, decode.span);
}

void addRunOptions(CLI::App& command, RunOptions& options, CaptureOptions& capture) {
  addWritingOptions(command, options);
  addCaptureOptions(command, capture);
  addSelection(command, options);
  command
      .add_flag("--strict", options.strict,
                "Exit with code 3 when a sample was lost, refused or missed")
      ->disable_flag_override();
  command
      .add_flag(
          "--jitter", options.jitter,
          "Measure the intervals of the first series and the CPU time per pass; compare both with "
          "a bare loop that only sleeps")
      ->disable_flag_override();
}

void addCheckOptions(CLI::App& command, CheckOptions& options) {
  addParsed(command, "--format", options.json, isJson,
            "text or json (default: text)\ntext  for people\njson  one object, for scripts")
      ->type_name("FORMAT");
  addParsed(command, "--measure", options.measure, measuringTime,
            "Also sample for this time, every millisecond: the steps of the counters, the longest "
            "safe intervals and the time of a pass; may be a fraction")
      ->type_name("SECONDS");
}

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
void refuseUnknownCommand(std::span<const char* const> words, const CLI::App& app) {
  if (words.empty())
    throw UsageError("a command is needed: run, top, decode, info, check, schema or options");
  if (std::string_view(words[0]).starts_with("-")) return;
  if (std::ranges::none_of(commandsOf(app), [&](const CLI::App* command) {
        return command->get_name() == words[0];
      }))
    throw UsageError(fmt::format(
        "unknown command '{}': run, top, decode, info, check, schema or options is needed",
        asPrintable(words[0])));
}

Command commandNamed(std::string_view name) {
  constexpr std::pair<std::string_view, Command> kCommands[] = {
      {"run", Command::run},        {"top", Command::top},     {"decode", Command::decode},
      {"info", Command::info},      {"check", Command::check}, {"schema", Command::schema},
      {"options", Command::options}};
  return std::ranges::find(kCommands, name, &std::pair<std::string_view, Command>::first)->second;
}

// The app holds references to `line` and `given`.
void describe(CLI::App& app, CommandLine& line, Given& given) {
  app.set_version_flag("--version", "tev-host " TEV_VERSION);
  app.require_subcommand(1);
  app.footer(kExamples);
  app.get_formatter()->column_width(28);
  app.option_defaults()->take_last();

  CLI::App* const run =
      app.add_subcommand("run", "Sample, and write the events until the end of the run or Ctrl-C");
  addPluginOptions(*run, line.run.plugin, given);
  addRunOptions(*run, line.run, given.capture);
  run->footer(kExamples);

  CLI::App* const top = app.add_subcommand(
      "top", "Show the adapters on the full screen, those with the worst planes first");
  addPluginOptions(*top, line.run.plugin, given);
  addTopOptions(*top, line.run, line.decode);

  CLI::App* const decode =
      app.add_subcommand("decode", "Write the events of capture files in any format");
  addDecodeOptions(*decode, line.run, line.decode);

  CLI::App* const info = app.add_subcommand("info", "Describe capture files");
  info->add_option("FILE", line.decode.files, "Capture files")->required()->type_name("");

  CLI::App* const check = app.add_subcommand(
      "check", "Show what would be sampled with these options, and whether it would work");
  addPluginOptions(*check, line.run.plugin, given);
  addUpdate(*check, line.run);
  addLinkSpeed(*check, line.run);
  addCheckOptions(*check, line.check);

  CLI::App* const schema =
      app.add_subcommand("schema", "Show the types of events that the plug-in would deliver");
  addPluginOptions(*schema, line.run.plugin, given);

  CLI::App* const options =
      app.add_subcommand("options", "Show the options that the plug-in describes");
  addPluginPath(*options, given);
  options->add_flag("--markdown", line.markdown, "Print a Markdown table")->disable_flag_override();
}

}  // namespace

CommandLine parseCommandLine(int argc, const char* const* argv, const Companions& companions) {
  Given given;
  CLI::App app(kProgramText, "tev-host");
  CommandLine line;
  describe(app, line, given);

  const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(argc > 0 ? 1 : 0);
  refuseUnknownCommand(words, app);
  refuseOddValues(words, app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Success& answer) {
    app.exit(answer);
    return line;
  } catch (const CLI::ExtrasError&) {
    std::vector<std::string> extras = app.remaining(true);
    throw UsageError("not expected here: " +
                     asPrintable(fmt::format("{}", fmt::join(extras, " "))));
  } catch (const CLI::ParseError& error) {
    throw UsageError(asPrintable(error.what()));
  }

  const CLI::App& command = *app.get_subcommands().front();
  line.command = commandNamed(command.get_name());
  line.run.full_screen = line.command == Command::top;
  for (const std::string& pattern : line.run.counting.counters) expectPattern("--counter", pattern);
  for (const std::string& pattern : line.run.counting.gauges) expectPattern("--gauge", pattern);
  if (line.run.rates && line.run.window)
    throw UsageError("--rates and --window exclude each other");
  readCapture(given.capture, command, line.run);
  if (line.decode.span.from_usec >= line.decode.span.to_usec)
    throw UsageError("--from must be before --to");
  if (line.command == Command::top) expectOneSource(command, !line.decode.files.empty());
  PluginOptions& plugin = line.run.plugin;
  if (given.plugin && given.plugin->empty()) refuse("--plugin", *given.plugin, "a path is needed");
  plugin.path = given.plugin.value_or(companions.plugin.string());
  if (const auto* const simulate = command.get_option_no_throw("--simulate");
      simulate && simulate->count() > 0)
    readScenario(given.scenario, plugin, companions);
  plugin.usual_devices = !given.plugin && !hasOption(plugin, kLibraryPathKey) &&
                         !hasOption(plugin, kOtherLibraryPathKey);
  addImplied(plugin, kUpdateKey, fmt::format("{}", line.run.update.count()));
  readLogLevel(given.log_level, plugin);
  return line;
}

}  // namespace tev::host
