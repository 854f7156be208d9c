#include "host/cli/option_groups.h"

#include <fmt/format.h>

#include <limits>
#include <string>
#include <vector>

#include "host/cli/add_option.h"
#include "host/cli/option_values.h"
#include "host/support/option_text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kMaxUpdate = 86'400'000;  // milliseconds: a day
constexpr std::uint64_t kMaxKept = 1'000'000;     // files
constexpr std::uint64_t kMaxPeak = 3600;          // seconds

std::string formatHelp() {
  std::string help = outputFormatNames() + " (default: table on a terminal, else jsonl)";
  for (const OutputFormat& format : outputFormats())
    help += fmt::format("\n{:<9}{}", format.name, format.help);
  return help;
}

std::vector<std::string> formatNames() {
  std::vector<std::string> names;
  for (const OutputFormat& format : outputFormats()) names.emplace_back(format.name);
  return names;
}

}  // namespace

void addPluginPath(CLI::App& command, Given& given) {
  command
      .add_option("--plugin", given.plugin,
                  "Plug-in to load (default: the libevents_multipath_provider.so that was built or "
                  "installed with this program)")
      ->type_name("PATH");
}

void addConfig(CLI::App& command, Given& given) {
  command
      .add_option(
          "--config", given.config,
          "Read options of 'run' from this file, in lines KEY = VALUE; those of the command "
          "line take precedence")
      ->type_name("FILE");
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
  offer(
      command
          .add_option(
              "--simulate", given.scenario,
              "Sample the bundled simulator instead of adapters: 'default', 'netdev' (this "
              "machine's network interfaces), a scenario file or a capture file, which is replayed")
          ->type_name("[=SCENARIO]")
          ->expected(0, 1),
      {"default", "netdev"});
  offer(command
            .add_option(
                "--log-level", given.log_level,
                "Log lines to show on standard error: error, warning, info, debug or a number "
                "(default: $TEV_API_LOG_LEVEL, else warning)")
            ->type_name("LEVEL"),
        {"error", "warning", "info", "debug"});
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

void addTimeSpan(CLI::App& command, TimeSpan& span) {
  addParsed(command, "--from", span.from_usec, momentUsec,
            "Only events from this time on: 2026-01-31T12:00:00Z, or seconds since 1970")
      ->type_name("TIME");
  addParsed(command, "--to", span.to_usec, momentUsec, "Only events before this time")
      ->type_name("TIME");
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
  offer(
      addParsed(
          command, "--sync", capture.sync, captureSync,
          "When the capture is forced to the disk: none, file (each complete file, the default) or "
          "update (each --update)")
          ->type_name("POLICY"),
      {"none", "file", "update"});
}

void addPrometheusOptions(CLI::App& command, Given& given) {
  addParsed(command, "--prometheus", given.prometheus, metricsAddress,
            "Also serve the latest figures to Prometheus, at http://ADDRESS:PORT/metrics; a port "
            "alone is on loopback, and 0 is any free port")
      ->type_name("ADDRESS:PORT");
  addParsed(
      command, "--prometheus-peak", given.prometheus_peak,
      [](const char* name, const std::string& text) {
        return std::chrono::seconds(wholeNumber(name, text, kMaxPeak));
      },
      "With --prometheus: the highest rate of any single sample, and the smallest and the largest "
      "value of a gauge, are those of the last N seconds, at most 3600 (default 60)")
      ->type_name("N");
}

void addBusOptions(CLI::App& command, Given& given) {
  addParsed(
      command, "--source", given.source, sourceName,
      "With --kafka: name of this node, the key of its messages, which no other node may have "
      "(default: the name of the machine)")
      ->type_name("NAME");
  addParsed(
      command, "--queue-size", given.queue_bytes, queueSize,
      "With --kafka: bytes of events that wait in memory for the brokers; the oldest ones are "
      "given up and counted as undelivered (default 16M); with --spool, only while its disk "
      "does not take them")
      ->type_name("BYTES");
  addParsed(
      command, "--spool", given.spool, folderPath,
      "With --kafka: keep the events in this folder until the brokers have them; what is left "
      "at the end is sent by the next run")
      ->type_name("DIR");
  addParsed(command, "--spool-size", given.spool_bytes, spoolSize,
            "With --spool: largest size of the folder; the oldest files are given up (default 1G)")
      ->type_name("BYTES");
}

void addWritingOptions(CLI::App& command, RunOptions& options) {
  offer(addParsed(command, "--format", options.format, formatNamed, formatHelp())
            ->type_name("FORMAT"),
        formatNames());
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
      "this length, among them the highest rate of a single sample; run --kafka sends these")
      ->type_name("MILLISECONDS");
  addParsed(
      command, "--samples", options.samples,
      [](const char* name, const std::string& text) {
        return wholeNumber(name, text, std::numeric_limits<std::int64_t>::max());
      },
      "Stop after this number of samples of each device")
      ->type_name("N");
}

void addKafkaOptions(CLI::App& command, KafkaOptions& kafka) {
  addParsed(command, "--kafka", kafka.brokers, brokerList,
            "Kafka brokers to begin with, separated by commas; the others are found through them")
      ->type_name("HOST:PORT");
  addParsed(command, "--topic", kafka.topic, topicName,
            "Topic of the events; their schemas are in the topic NAME.schemas")
      ->type_name("NAME");
  command
      .add_option_function<std::vector<std::string>>(
          "--kafka-set",
          [&kafka](const std::vector<std::string>& texts) {
            for (const std::string& text : texts)
              kafka.settings.push_back(kafkaSetting("--kafka-set", text));
          },
          "Setting of the Kafka client, as librdkafka names it; may be repeated; takes precedence "
          "over --kafka-config")
      ->type_name("KEY=VALUE")
      ->expected(1)
      ->allow_extra_args(false)
      ->take_all();
  command
      .add_option("--kafka-config", kafka.settings_file,
                  "Read settings of the Kafka client from this file, in lines KEY=VALUE; secrets "
                  "belong there")
      ->type_name("FILE");
}

}  // namespace tev::host
