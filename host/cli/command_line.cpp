#include "host/cli/command_line.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>
#include <span>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/cli/commands.h"
#include "host/cli/config_words.h"
#include "host/cli/parser.h"
#include "host/cli/words.h"
#include "host/commands/known_options.h"
#include "host/support/errors.h"
#include "host/support/host_name.h"
#include "host/support/option_text.h"
#include "host/support/text.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

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

// A recording is replayed with the settings that determine its values.
void addRecordedSettings(const std::string& path, PluginOptions& plugin) {
  try {
    const CaptureHead head = CaptureSource({path}).head();
    if (head.interval_usec > 0)
      addImplied(plugin, kSampleIntervalKey, fmt::format("{}", head.interval_usec));
    if (head.clear_on_read) addImplied(plugin, kClearKey, "true");
  } catch (const RunError&) {
    // Not a recording, or a damaged one: the simulator says why it cannot be played.
  }
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
  if (!built_in) addRecordedSettings(scenario, plugin);
}

bool isSameFile(const std::string& one, const std::string& other) {
  std::error_code error;
  return std::filesystem::weakly_canonical(one, error) ==
         std::filesystem::weakly_canonical(other, error);
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
  if (!capture.path.empty() && !run.output.empty() && run.output != "-" &&
      isSameFile(capture.path, run.output))
    throw UsageError("--output and --capture name the same file");
  if (!capture.path.empty()) run.capture = capture;
}

void readPrometheus(const Given& given, std::optional<PrometheusOptions>& options) {
  if (given.prometheus_peak && !given.prometheus)
    throw UsageError("--prometheus-peak needs --prometheus");
  if (!given.prometheus) return;
  options = PrometheusOptions{.address = *given.prometheus};
  if (given.prometheus_peak) options->peak = *given.prometheus_peak;
}

// The options of sending events.
void readBus(const Given& given, RunOptions& run) {
  const struct {
    bool is_given;
    const char* name;
  } others[] = {{!run.kafka.topic.empty(), "--topic"},
                {!run.kafka.settings.empty(), "--kafka-set"},
                {!run.kafka.settings_file.empty(), "--kafka-config"},
                {given.source.has_value(), "--source"},
                {given.queue_bytes.has_value(), "--queue-size"},
                {given.spool.has_value(), "--spool"},
                {given.spool_bytes.has_value(), "--spool-size"}};
  if (run.kafka.brokers.empty()) {
    for (const auto& other : others)
      if (other.is_given) throw UsageError(fmt::format("{} needs --kafka", other.name));
    return;
  }
  if (run.kafka.topic.empty()) throw UsageError("--kafka needs --topic");
  if (given.spool_bytes && !given.spool) throw UsageError("--spool-size needs --spool");
  run.bus.source = given.source.value_or(hostName());
  if (run.bus.source.empty()) throw UsageError("the machine has no name: --source is needed");
  if (given.queue_bytes) run.bus.queue_bytes = *given.queue_bytes;
  if (given.spool) run.bus.spool = SpoolOptions{.folder = *given.spool};
  if (given.spool_bytes) run.bus.spool->most_bytes = *given.spool_bytes;
}

void readConsume(const Given& given, ConsumeOptions& options) {
  RangeLimits& limits = options.limits;
  const bool is_parquet = options.format == ConsumeFormat::parquet;
  options.limits_given = given.range_bytes || given.range_messages || given.range_seconds;
  if (options.limits_given && !is_parquet)
    throw UsageError("--range-size, --range-messages and --range-time need --format parquet");
  if (given.range_bytes) limits.bytes = *given.range_bytes;
  if (given.range_messages) limits.messages = *given.range_messages;
  if (given.range_seconds) limits.seconds = *given.range_seconds;
  if (options.output.empty() && options.format != ConsumeFormat::jsonl)
    throw UsageError("--output FOLDER is needed, unless --format is jsonl");
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

// A folder of files is made from a whole recording.
void expectFormat(const RunOptions& run, Command command) {
  if (!run.format || run.format->kind != FormatKind::folder) return;
  if (command != Command::decode)
    throw UsageError(fmt::format(
        "--format {0} needs a recording: run with --capture FILE, then decode FILE --format {0}",
        run.format->name));
  if (run.output.empty() || run.output == "-")
    throw UsageError(fmt::format("--format {} needs --output FOLDER", run.format->name));
}

void expectPattern(const char* option, const std::string& pattern) {
  if (pattern.empty()) refuse(option, pattern, "a name, ^PREFIX or SUFFIX$ is needed");
}

// What only a run uses. The check finds out whether it can.
void addRunOptions(const RunOptions& whole, RunOptions& check) {
  check.selection = whole.selection;
  check.counting = whole.counting;
  check.format = whole.format;
  check.rates = whole.rates;
  check.window = whole.window;
  check.capture = whole.capture;
  check.prometheus = whole.prometheus;
  check.kafka = whole.kafka;
  check.bus = whole.bus;
}

}  // namespace

Parser::Parser() {
  describeProgram(app_, line, given);
}

bool Parser::parse(const std::vector<std::string>& words) {
  std::vector<const char*> argv{"tev-host"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  refuseOddWords(std::span(argv).subspan(1), app_);
  try {
    app_.parse(static_cast<int>(argv.size()), argv.data());
  } catch (const CLI::Success& answer) {
    app_.exit(answer);
    return false;
  } catch (const CLI::ExtrasError&) {
    std::vector<std::string> extras = app_.remaining(true);
    throw UsageError("not expected here: " +
                     asPrintable(fmt::format("{}", fmt::join(extras, " "))));
  } catch (const CLI::ParseError& error) {
    throw UsageError(asPrintable(error.what()));
  }
  for (const std::string& pattern : line.run.counting.counters) expectPattern("--counter", pattern);
  for (const std::string& pattern : line.run.counting.gauges) expectPattern("--gauge", pattern);
  return true;
}

bool Parser::isGiven(const std::string& name) {
  const CLI::Option* const option = command().get_option_no_throw(name);
  return option && option->count() > 0;
}

void Parser::readPlugin(const Companions& companions) {
  PluginOptions& plugin = line.run.plugin;
  if (given.plugin && given.plugin->empty()) refuse("--plugin", *given.plugin, "a path is needed");
  plugin.path = given.plugin.value_or(companions.plugin.string());
  if (isGiven("--simulate")) readScenario(given.scenario, plugin, companions);
  plugin.usual_devices = !given.plugin && !hasOption(plugin, kLibraryPathKey) &&
                         !hasOption(plugin, kOtherLibraryPathKey);
  addImplied(plugin, kUpdateKey, fmt::format("{}", line.run.update.count()));
  readLogLevel(given.log_level, plugin);
}

void Parser::readRest() {
  line.command = commandNamed(command().get_name()).value_or(Command::answered);
  line.run.full_screen = line.command == Command::top;
  if (line.run.rates && line.run.window)
    throw UsageError("--rates and --window exclude each other");
  expectFormat(line.run, line.command);
  if (line.command != Command::consume) readCapture(given.capture, command(), line.run);
  readPrometheus(given,
                 line.command == Command::consume ? line.consume.prometheus : line.run.prometheus);
  if (line.command == Command::run) readBus(given, line.run);
  if (line.command == Command::consume) readConsume(given, line.consume);
  if (line.decode.span.from_usec >= line.decode.span.to_usec)
    throw UsageError("--from must be before --to");
  if (line.command == Command::top) expectOneSource(command(), !line.decode.files.empty());
}

CommandLine parseCommandLine(int argc, const char* const* argv, const Companions& companions) {
  const std::vector<std::string> words(argv + std::min(argc, 1), argv + argc);
  Parser first;
  if (!first.parse(words)) return {};
  if (!first.isGiven("--config")) {
    first.readRest();
    first.readPlugin(companions);
    return first.line;
  }
  const Configured config = withConfig(words, first, companions);
  Parser parser;
  parser.parse(config.words);
  parser.readRest();
  parser.readPlugin(companions);
  if (parser.line.command == Command::check) addRunOptions(config.run, parser.line.run);
  return parser.line;
}

}  // namespace tev::host
