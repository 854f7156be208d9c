#include "host/cli/help_text.h"

#include <fmt/format.h>

#include "host/support/errors.h"

namespace tev::host {
namespace {

constexpr Example kExamples[] = {
    {"run --simulate", "live table of the simulated adapters; Ctrl-C ends it"},
    {"top --simulate", "the same on the full screen: the worst plane of each adapter, with keys"},
    {"run --simulate=netdev --format jsonl --samples 5",
     "five samples of every network interface of this machine, as JSON lines"},
    {"run --simulate --option multipath-sample-interval-usec=1000 --duration 10 --output run.jsonl",
     "ten seconds at 1 kHz, into a file"},
    {"run --simulate --fset types.fset --cset counters.cset --filter -rdma2",
     "selected types, fields and counters of all devices except rdma2"},
    {"run --simulate --option multipath-sample-interval-usec=1000 --window 1000 --format jsonl",
     "a record per series and second, with the highest rate of any millisecond"},
    {"run --option multipath-vuna-lib-path=/path/to/libvuna_telemetry.so", "a real device SDK"},
    {"check --simulate --measure 2",
     "what would be sampled, how fast the counters move, and how long a pass takes"},
    {"run --simulate --format none --capture run.tevcap --duration 5",
     "a recording of five seconds"},
    {"run --simulate --format none --kafka kafka1:9092 --topic tev --spool spool",
     "send the events to Kafka, and keep them in a folder while no broker answers"},
    {"run --simulate --format none --prometheus 9464",
     "the latest figures for Prometheus, at http://127.0.0.1:9464/metrics"},
    {"info run.tevcap", "what the recording says about itself, and what is missing in it"},
    {"decode run.tevcap --format csv --window 1000",
     "its figures per second, as a table for a script"},
    {"decode run.tevcap --format parquet --output run",
     "a Parquet file per type of event, in the folder run"},
    {"plot run.tevcap -o run.html", "a page of plots, for any browser"},
    {"run --simulate=run.tevcap --format csv", "the recorded incident again, through the plug-in"},
    {"schema --simulate", "the types of events of the simulated adapters"},
    {"options", "the options of the plug-in, with defaults and values"},
    {"consume --kafka kafka1:9092 --topic tev --group lake --output lake",
     "Parquet files by hour and type, each event once"},
    {"consume --kafka kafka1:9092 --topic tev --group look --format jsonl",
     "every event as a line"},
    {"topics --kafka kafka1:9092,kafka2:9092 --topic tev --partitions 24 --retention 7d",
     "the Kafka topics tev and tev.schemas"},
};

constexpr ExitMeaning kExitCodes[] = {
    {kExitFine, "success"},
    {kExitFailed,
     "the plug-in refused, the run failed or would fail, no sample was read, or a capture is "
     "damaged"},
    {kExitUsage, "wrong usage"},
    {kExitMissing, "samples are missing (with --strict)"},
};

constexpr ExitMeaning kConsumeCodes[] = {
    {kExitFine, "success"},
    {kExitFailed,
     "no broker answers, a topic is missing or has other settings, or the output cannot be "
     "written"},
    {kExitUsage, "wrong usage"},
};

constexpr ExitMeaning kTopicsCodes[] = {
    {kExitFine, "the topics are as asked for, or would be"},
    {kExitFailed, "they are not, or no broker answers"},
    {kExitUsage, "wrong usage"},
};

std::string_view commandOf(const Example& example) {
  const std::string_view line = example.line;
  return line.substr(0, line.find(' '));
}

}  // namespace

std::span<const Example> examples() {
  return kExamples;
}

std::span<const ExitMeaning> exitCodes(std::string_view command) {
  if (command == "consume") return kConsumeCodes;
  if (command == "topics") return kTopicsCodes;
  return kExitCodes;
}

std::string helpFooter(std::string_view command) {
  std::string text = "Examples:\n";
  for (const Example& example : kExamples)
    if (command.empty() || commandOf(example) == command)
      text += fmt::format("  tev-host {}\n      {}\n", example.line, example.meaning);
  text += "\nExit code: ";
  for (const ExitMeaning& one : exitCodes(command))
    text += fmt::format("{}{} {}",
                        one.code == kExitFine    ? ""
                        : one.code == kExitUsage ? ";\n"
                                                 : "; ",
                        one.code, one.meaning);
  return text + ".";
}

}  // namespace tev::host
