#include "host/cli/commands.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

#include "host/cli/add_option.h"
#include "host/cli/option_groups.h"
#include "host/cli/option_values.h"

namespace tev::host {
namespace {

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

void addRun(CLI::App& command, CommandLine& line, Given& given) {
  addPluginOptions(command, line.run.plugin, given);
  addWritingOptions(command, line.run);
  addCaptureOptions(command, given.capture);
  addSelection(command, line.run);
  command
      .add_flag("--strict", line.run.strict,
                "Exit with code 3 when a sample was lost, refused or missed")
      ->disable_flag_override();
  command
      .add_flag(
          "--jitter", line.run.jitter,
          "Measure the intervals of the first series and the CPU time per pass; compare both with "
          "a bare loop that only sleeps")
      ->disable_flag_override();
  command.footer(kExamples);
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
  addParsed(command, "--symbols", line.run.symbols, symbolSet,
            "Characters of the traces: " + symbolSetNames() +
                " (default: braille on a terminal with UTF-8, else plain)")
      ->type_name("SET");
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

void addCheck(CLI::App& command, CommandLine& line, Given& given) {
  addPluginOptions(command, line.run.plugin, given);
  addUpdate(command, line.run);
  addLinkSpeed(command, line.run);
  addParsed(command, "--format", line.check.json, isJson,
            "text or json (default: text)\ntext  for people\njson  one object, for scripts")
      ->type_name("FORMAT");
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
    {Command::check, "check",
     "Show what would be sampled with these options, and whether it would work", addCheck},
    {Command::schema, "schema", "Show the types of events that the plug-in would deliver",
     addSchema},
    {Command::options, "options", "Show the options that the plug-in describes", addOptions},
};

}  // namespace

void addCommands(CLI::App& app, CommandLine& line, Given& given) {
  app.footer(kExamples);
  for (const Row& row : kCommands)
    row.add(*app.add_subcommand(row.name, row.description), line, given);
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
