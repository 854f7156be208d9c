#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <exception>

#include "host/companions.h"
#include "host/errors.h"
#include "host/run.h"
#include "host/run_options.h"
#include "host/show_schema.h"

namespace {

int dispatch(int argc, char** argv) {
  using namespace tev::host;
  const CommandLine line = parseCommandLine(argc, argv, findCompanions());
  switch (line.command) {
    case Command::run:
      return run(line.run);
    case Command::schema:
      return showSchema(line.run);
    case Command::answered:
      break;
  }
  return kExitFine;
}

// What is opened later must not take the place of a standard stream that the caller closed: writing
// to that is to fail.
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

}  // namespace

int main(int argc, char** argv) {
  occupyStandardStreams();
  try {
    return dispatch(argc, argv);
  } catch (const tev::host::UsageError& error) {
    std::fprintf(stderr, "tev-host: %s\nMore about the options: tev-host run --help\n",
                 error.what());
    return tev::host::kExitUsage;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tev-host: %s\n", error.what());
    return tev::host::kExitFailed;
  }
}
