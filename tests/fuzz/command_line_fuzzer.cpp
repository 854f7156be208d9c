// Input: the words of a command line, a line each.
#include <iostream>

#include "host/cli/command_line.h"
#include "host/cli/companions.h"
#include "host/support/errors.h"
#include "tests/fuzz/fuzz.h"

using namespace tev::host;
using tev::test::check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::cout.rdbuf(nullptr);  // help and version
  static const Companions companions = companionsOf("/opt/tev/bin");
  const auto words = tev::test::linesOf(data, size);
  std::vector<const char*> argv{"tev-host"};
  for (const auto& word : words) argv.push_back(word.c_str());
  try {
    const CommandLine line =
        parseCommandLine(static_cast<int>(argv.size()), argv.data(), companions);
    check(line.command == Command::answered || line.run.buffer_bytes > 0, "the buffer has room");
  } catch (const UsageError& error) {
    check(*error.what() != '\0', "a refusal has a reason");
  }
  return 0;
}
