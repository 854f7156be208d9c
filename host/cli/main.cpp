#include <fcntl.h>
#include <unistd.h>

#include <exception>
#include <string>

#include "host/cli/command_line.h"
#include "host/cli/companions.h"
#include "host/commands/check.h"
#include "host/commands/consume.h"
#include "host/commands/decode.h"
#include "host/commands/info.h"
#include "host/commands/options.h"
#include "host/commands/play.h"
#include "host/commands/plot.h"
#include "host/commands/run.h"
#include "host/commands/schema.h"
#include "host/commands/topics.h"
#include "host/plugin/plugin_thread.h"
#include "host/support/errors.h"
#include "host/support/stderr_text.h"

namespace {

int dispatch(int argc, char** argv) {
  using namespace tev::host;
  const CommandLine line = parseCommandLine(argc, argv, findCompanions());
  switch (line.command) {
    case Command::top:
      if (!line.decode.files.empty()) return play(line.run, line.decode);
      [[fallthrough]];
    case Command::run:
      return run(line.run);
    case Command::decode:
      return decode(line.run, line.decode);
    case Command::info:
      return showInfo(line.decode.files);
    case Command::plot:
      return plot(line.run, line.decode, line.plot);
    case Command::check:
      return check(line.run, line.check);
    case Command::schema:
      return showSchema(line.run);
    case Command::options:
      return showOptions(line.run.plugin.path, line.markdown);
    case Command::consume:
      return consume(line.consume);
    case Command::topics:
      return topics(line.kafka, line.topics);
    case Command::answered:
      break;
  }
  return kExitFine;
}

void showError(const std::string& text) {
  tev::host::showOnStderr("tev-host: " + text + "\n");
}

// Opens /dev/null for each standard stream that the caller closed. Otherwise a file that is opened
// later could get the number of such a stream, and the stream's text would be written to the file.
void occupyStandardStreams() {
  while (true) {
    const int descriptor = open("/dev/null", O_RDONLY);
    if (descriptor < 0) return;
    if (descriptor > STDERR_FILENO) {
      close(descriptor);
      return;
    }
  }
}

int exitCode(int argc, char** argv) {
  try {
    return dispatch(argc, argv);
  } catch (const tev::host::UsageError& error) {
    showError(std::string(error.what()) + "\nMore about the options: tev-host COMMAND --help");
    return tev::host::kExitUsage;
  } catch (const std::exception& error) {
    showError(error.what());
    return tev::host::kExitFailed;
  }
}

}  // namespace

int main(int argc, char** argv) {
  occupyStandardStreams();
  tev::host::PluginThread::endProcess(exitCode(argc, argv));
}
