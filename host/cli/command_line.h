// The command line.
#pragma once

#include "host/cli/companions.h"
#include "host/commands/check.h"
#include "host/commands/consume.h"
#include "host/commands/decode.h"
#include "host/commands/plot.h"
#include "host/commands/run_options.h"
#include "host/kafka/settings.h"
#include "host/kafka/topic_plan.h"

namespace tev::host {

enum class Command {
  run,
  top,
  decode,
  info,
  plot,
  check,
  schema,
  options,
  consume,
  topics,
  answered
};

struct CommandLine {
  Command command = Command::answered;  // help or version, which the parser has printed
  RunOptions run;                       // the options of all commands that set the plug-in up
  CheckOptions check;
  DecodeOptions decode;
  PlotOptions plot;
  KafkaOptions kafka;
  TopicsOptions topics;
  ConsumeOptions consume;
  bool markdown = false;  // of the command options
};

// Throws UsageError.
CommandLine parseCommandLine(int argc, const char* const* argv, const Companions& companions);

}  // namespace tev::host
