// The live table and the full screen on a pseudo-terminal: every way out, a resize, and a device
// read that hangs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/host/process.h"
#include "tests/host/terminal_process.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using test::kCtrlC;
using test::kEnter;
using test::kLeave;
using test::TerminalProcess;

const std::string kRun = "run --plugin " FAKE_PLUGIN " ";
const std::string kTop = "top --plugin " FAKE_PLUGIN " ";

TEST(Terminal, IsPutBackByEveryWayOut) {
  const struct {
    const char* options;
    const char* keys;  // typed, unless there is a signal
    int signal;
    int status;
  } rows[] = {
      {"", kCtrlC, 0, 0},
      {"", "\x1c", 0, -SIGQUIT},
      {"--option wrong=hang", kCtrlC, 0, -SIGINT},  // three times
      {"", "", SIGTERM, 0},
      {"", "", SIGHUP, 0},
      {"", "", SIGSEGV, -SIGSEGV},
      {"", "", SIGBUS, -SIGBUS},
      {"", "", SIGFPE, -SIGFPE},
      {"", "", SIGUSR1, -SIGUSR1},
      {"--option wrong=abort", "", 0, -SIGABRT},
      {"--option wrong=magic", "", 0, 1},
  };
  const auto leaves = [](const std::string& command, const char* drawn, const auto& row) {
    SCOPED_TRACE(testing::Message()
                 << command << row.options << " " << row.signal << " " << -row.status);
    TerminalProcess process(command + "--update 5 " + row.options);
    std::string shown = process.until(drawn);
    if (row.status == -SIGINT) process.until("has not answered");
    if (row.signal) process.kill(row.signal);
    for (int i = 0; i < (row.status == -SIGINT ? 3 : 1) && *row.keys; ++i) {
      process.type(row.keys);
      if (row.status == -SIGINT) usleep(20'000);
    }
    shown += process.finish();
    EXPECT_EQ(process.status, row.status);
    const std::size_t leave = shown.rfind(kLeave);
    ASSERT_NE(leave, std::string::npos);
    EXPECT_GT(leave, shown.rfind(kEnter));
    EXPECT_THAT(shown.substr(0, leave), testing::EndsWith("\x1b[0m\x1b[?7h\x1b[?25h"));
    EXPECT_TRUE(process.hasFirstModes());
  };
  for (const auto& row : rows) {
    leaves(kRun, "\x1b[J", row);
    leaves(kTop, "quit", row);
  }
}

TEST(Terminal, EndsARecordingWhenItIsLost) {
  test::TempTree tree;
  TerminalProcess process("run --simulate --update 20 --capture " + tree.path("a.tevcap"));
  process.until("rdma2");
  process.kill(SIGHUP);  // a new file, because the terminal exists
  process.until("rdma2");
  process.hangUp();
  const auto decoded = test::HostProcess("decode --format csv " + tree.path("a*.tevcap")).finish();
  EXPECT_EQ(decoded.exit, 0) << decoded.err;
  EXPECT_THAT(decoded.out, testing::SizeIs(testing::Gt(1)));
}

TEST(Top, FollowsTheKeysAndTheWindow) {
  TerminalProcess process(kTop + "--update 20");
  process.until("alpha");
  process.type("\r");  // opens the adapter
  process.until("back");
  process.resize(40, 140);
  process.until("Tab");
  process.resize(5, 20);
  process.until("The window needs");
  process.resize(24, 80);
  process.until("back");
  process.type("?");
  process.until("any key");
  process.type("q");
  process.finish();
  EXPECT_EQ(process.status, 0);
}

TEST(Top, ShowsADeviceThatDies) {
  test::TempTree tree;
  tree.write("dies.json", R"({"base": "default", "status_names": {"42": "LINK_ON_FIRE"},
    "faults": [{"function": "vuna_telemetry_mp_get_counters", "device": "rdma1", "call": "every",
                "status": 42}]})");
  TerminalProcess process(
      "top --option multipath-sample-interval-usec=50000 --update 50 --simulate=" +
      tree.path("dies.json"));
  process.until("LINK_ON_FIRE");
  process.type("q");
  EXPECT_THAT(process.finish(), testing::HasSubstr("rdma1: its reads fail: LINK_ON_FIRE"));
}

TEST(Top, PlaysARecording) {
  test::TempTree tree;
  const std::string path = tree.path("a.tevcap");
  test::HostProcess(
      "run --simulate --samples 20 --option multipath-sample-interval-usec=1000 "
      "--update 10 --format none --capture " +
      path)
      .finish();
  TerminalProcess process("top --update 20 " + path);
  EXPECT_THAT(process.until("the recording ends here"), testing::HasSubstr("rdma2"));
  process.type("q");
  process.finish();
  EXPECT_EQ(process.status, 0);
}

TEST(Top, NeedsATerminal) {
  const test::Result result = test::HostProcess("top --simulate").finish();
  EXPECT_EQ(result.exit, 2);
  EXPECT_THAT(result.err, testing::HasSubstr("tev-host: top needs a terminal, and standard input"));
}

TEST(Terminal, IsRedrawnAtOnceAfterAResizeAndAStop) {
  TerminalProcess process(kRun + "--update 3600000");
  process.until("Waiting");
  process.resize(10, 40);
  process.until("Waiting");
  process.type("\x1a");  // the process has no shell: the terminal's stop is ignored
  const std::string shown = process.until("Waiting");
  EXPECT_LT(shown.find(kLeave), shown.find(kEnter));
  process.type(kCtrlC);
  process.finish();
  EXPECT_EQ(process.status, 0);
}

TEST(Terminal, SaysThatAReadHangsAndWhatCtrlCDoes) {
  TerminalProcess process(kRun + "--update 50 --option wrong=hang");
  process.until("the plug-in has not answered for 2 s");
  process.resize(12, 90);
  process.until("the plug-in has not answered for");
  process.type(kCtrlC);
  process.until("waiting for the plug-in to stop; Ctrl-C ends the wait");
  process.type(kCtrlC);
  EXPECT_THAT(process.finish(),
              testing::ContainsRegex("alpha +1 .*the plug-in did not answer, and the run ended"));
  EXPECT_EQ(process.status, 1);
}

}  // namespace
}  // namespace tev::host
