#include "host/cli/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/cli/add_option.h"
#include "host/cli/help_text.h"
#include "host/cli/option_groups.h"
#include "host/cli/option_values.h"
#include "host/cli/version_text.h"

namespace tev::host {
namespace {

constexpr char kProgramText[] =
    "A reference host: it loads a provider plug-in, starts sampling, and writes the events.";

void addRun(CLI::App& command, CommandLine& line, Given& given) {
  addConfig(command, given);
  addPluginOptions(command, line.run.plugin, given);
  addWritingOptions(command, line.run);
  addCaptureOptions(command, given.capture);
  addPrometheusOptions(command, given);
  addKafkaOptions(command, line.run.kafka);
  addBusOptions(command, given);
  addSelection(command, line.run);
  command
      .add_flag(
          "--strict", line.run.strict,
          "Exit with code 3 when a sample was lost, refused or missed, or with --kafka undelivered")
      ->disable_flag_override();
  command
      .add_flag(
          "--jitter", line.run.jitter,
          "Measure the intervals of the first series and the CPU time per pass; compare both with "
          "a bare loop that only sleeps")
      ->disable_flag_override();
}

void addTop(CLI::App& command, CommandLine& line, Given& given) {
  addPluginOptions(command, line.run.plugin, given);
  command.add_option("FILE", line.decode.files, "Capture files to play, instead of a plug-in")
      ->type_name("");
  addTimeSpan(command, line.decode.span);
  addParsed(command, "--speed", line.decode.speed, playSpeed,
            "With FILE: recorded seconds per second (default 1)")
      ->type_name("N");
  addSelection(command, line.run);
  offer(addParsed(command, "--symbols", line.run.symbols, symbolSet,
                  "Characters of the traces: " + symbolSetNames() +
                      " (default: braille on a terminal with UTF-8, else plain)")
            ->type_name("SET"),
        {"braille", "blocks", "plain"});
}

void addDecode(CLI::App& command, CommandLine& line, Given&) {
  command.add_option("FILE", line.decode.files, "Capture files, which are read as one")
      ->required()
      ->type_name("");
  addWritingOptions(command, line.run);
  addSets(command, line.run);
  addTimeSpan(command, line.decode.span);
}

void addInfo(CLI::App& command, CommandLine& line, Given&) {
  command.add_option("FILE", line.decode.files, "Capture files")->required()->type_name("");
}

void addPlot(CLI::App& command, CommandLine& line, Given&) {
  command.add_option("FILE", line.decode.files, "Capture files, which are read as one")
      ->required()
      ->type_name("");
  command
      .add_option("-o,--output", line.run.output,
                  "Write the page to this file, which is replaced when the page is complete")
      ->required()
      ->type_name("FILE");
  addParsed(command, "--page-size", line.plot.most_bytes, pageSize,
            "Largest size of the page, from 256K to 512M; a larger page has finer levels of detail "
            "(default 32M)")
      ->type_name("BYTES");
  command.add_option("--title", line.plot.title, "Title of the page (default: the files' names)")
      ->type_name("TEXT");
  addSets(command, line.run);
  addTimeSpan(command, line.decode.span);
}

void addCheck(CLI::App& command, CommandLine& line, Given& given) {
  addConfig(command, given);
  addPluginOptions(command, line.run.plugin, given);
  addUpdate(command, line.run);
  addLinkSpeed(command, line.run);
  offer(addParsed(command, "--format", line.check.json, isJson,
                  "text or json (default: text)\ntext  for people\njson  one object, for scripts")
            ->type_name("FORMAT"),
        {"text", "json"});
  addParsed(command, "--measure", line.check.measure, measuringTime,
            "Also sample for this time, every millisecond: the steps of the counters, the longest "
            "safe intervals and the time of a pass; may be a fraction")
      ->type_name("SECONDS");
}

void addSchema(CLI::App& command, CommandLine& line, Given& given) {
  addPluginOptions(command, line.run.plugin, given);
}

void addOptions(CLI::App& command, CommandLine& line, Given& given) {
  addPluginPath(command, given);
  command.add_flag("--markdown", line.markdown, "Print a Markdown table")->disable_flag_override();
}

void addConsume(CLI::App& command, CommandLine& line, Given& given) {
  ConsumeOptions& options = line.consume;
  addKafkaOptions(command, options.kafka);
  command.get_option("--kafka")->required();
  command.get_option("--topic")->required();
  addParsed(command, "--group", options.group, groupName,
            "Name of the group of workers, which share the partitions of the topic")
      ->type_name("NAME")
      ->required();
  offer(addParsed(command, "--format", options.format, consumeFormat,
                  "parquet (default), jsonl, csv or capture\n"
                  "parquet  files by hour and type in the folder --output, each event once\n"
                  "jsonl    one JSON object per line and event\n"
                  "csv      files by type in the folder --output\n"
                  "capture  capture files by node in the folder --output")
            ->type_name("FORMAT"),
        {"parquet", "jsonl", "csv", "capture"});
  command
      .add_option("--output", options.output,
                  "Folder for the files; with jsonl a file, by default standard output")
      ->type_name("PATH");
  addParsed(
      command, "--range-size", given.range_bytes, rangeSize,
      "With parquet: end the files before they have more bytes of event blocks (default 256M)")
      ->type_name("BYTES");
  addParsed(command, "--range-messages", given.range_messages, rangeMessages,
            "With parquet: end the files after this number of messages (default 100000)")
      ->type_name("N");
  addParsed(command, "--range-time", given.range_seconds, rangeTime,
            "With parquet: end the files when a node's events are so many seconds later than its "
            "first ones (default 600)")
      ->type_name("SECONDS");
  offer(addParsed(command, "--sync", options.is_forced_out, isForcedOut,
                  "With parquet: range forces the files to the disk before they count as done "
                  "(default), none leaves this to the system")
            ->type_name("POLICY"),
        {"none", "range"});
  addPrometheusOptions(command, given);
}

void addTopics(CLI::App& command, CommandLine& line, Given&) {
  addKafkaOptions(command, line.kafka);
  command.get_option("--kafka")->required();
  command.get_option("--topic")->required();
  addParsed(command, "--partitions", line.topics.partitions, partitionCount,
            "Number of partitions, which is the largest number of workers (default 12)")
      ->type_name("N");
  addParsed(command, "--replication", line.topics.replicas, replicaCount,
            "Number of brokers that keep a copy; with 3 or more, one may be missing (default 3)")
      ->type_name("N");
  addParsed(command, "--retention", line.topics.retention, retentionTime,
            "How long the events are kept (s, m, h, d; default 24h)")
      ->type_name("TIME");
  command
      .add_flag("--grow", line.topics.grow,
                "Add partitions to an existing topic. Sources move to other partitions, so the "
                "order of a source's events breaks once")
      ->disable_flag_override();
  command.add_flag("--dry-run", line.topics.dry_run, "Only show what would be created or changed")
      ->disable_flag_override();
}

struct Row {
  Command command;
  const char* name;
  const char* description;
  void (*add)(CLI::App& command, CommandLine& line, Given& given);
};

constexpr Row kCommands[] = {
    {Command::run, "run", "Sample, and write the events until the end of the run or Ctrl-C",
     addRun},
    {Command::top, "top", "Show the adapters on the full screen, those with the worst planes first",
     addTop},
    {Command::decode, "decode", "Write the events of capture files in any format", addDecode},
    {Command::info, "info", "Describe capture files", addInfo},
    {Command::plot, "plot", "Write capture files as a page of plots, for any browser", addPlot},
    {Command::check, "check",
     "Show what would be sampled with these options, and whether it would work", addCheck},
    {Command::schema, "schema", "Show the types of events that the plug-in would deliver",
     addSchema},
    {Command::options, "options", "Show the options that the plug-in describes", addOptions},
    {Command::consume, "consume", "Write the events of a Kafka topic into files, as one of a group",
     addConsume},
    {Command::topics, "topics", "Create or check the Kafka topics of events and their schemas",
     addTopics},
};

}  // namespace

void describeProgram(CLI::App& app, CommandLine& line, Given& given) {
  app.name("tev-host");
  app.description(kProgramText);
  app.set_version_flag("--version", versionText());
  app.require_subcommand(1);
  app.get_formatter()->column_width(28);
  app.option_defaults()->take_last();
  app.footer(helpFooter(""));
  for (const Row& row : kCommands) {
    CLI::App& command = *app.add_subcommand(row.name, row.description);
    command.footer(helpFooter(row.name));
    row.add(command, line, given);
  }
}

std::optional<Command> commandNamed(std::string_view name) {
  const auto* const row = std::ranges::find(kCommands, name, &Row::name);
  if (row == std::end(kCommands)) return std::nullopt;
  return row->command;
}

std::string commandNames() {
  std::string names;
  for (const Row& row : kCommands) {
    if (&row != kCommands) names += &row + 1 == std::end(kCommands) ? " or " : ", ";
    names += row.name;
  }
  return names;
}

}  // namespace tev::host
