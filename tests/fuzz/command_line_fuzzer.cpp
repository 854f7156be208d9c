// Input: the words of a command line, a line each.
#include <iostream>

#include "host/cli/command_line.h"
#include "host/cli/companions.h"
#include "host/support/errors.h"
#include "tests/fuzz/fuzz.h"

namespace {

using namespace tev::host;
using tev::test::check;

void checkCommand(const CommandLine& line) {
  if (line.command == Command::answered) return;
  const RunOptions& run = line.run;
  check(!run.plugin.path.empty(), "there is a plug-in to load");
  for (const auto& [key, value] : run.plugin.options) check(!key.empty(), "options have names");
  check(run.plugin.log_level < TEV_LEVEL_UNSET, "the log has a level");
  check(run.buffer_bytes > 0, "the buffer has room");
  check(run.update.count() > 0, "fetches are apart");
  check(!run.duration || run.duration->count() > 0, "a run takes time");
  check(!run.samples || *run.samples > 0, "and has samples");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::cout.rdbuf(nullptr);  // help and version
  static const Companions companions = companionsOf("/opt/tev/bin");
  const auto words = tev::test::linesOf(data, size);
  std::vector<const char*> argv{"tev-host"};
  for (const auto& word : words) argv.push_back(word.c_str());
  try {
    checkCommand(parseCommandLine(static_cast<int>(argv.size()), argv.data(), companions));
  } catch (const UsageError& error) {
    check(*error.what() != '\0', "a refusal has a reason");
  }
  return 0;
}
