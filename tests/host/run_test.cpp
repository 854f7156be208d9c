// The whole program, as a user starts it, with a scripted plug-in.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tests/host/process.h"
#include "tests/support/environment.h"

namespace tev::host {
namespace {

using test::HostProcess;
using test::linesOf;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

struct Result {
  int exit;
  std::vector<std::string> out;
  std::string err;
};

class RunTest : public testing::Test {
 protected:
  RunTest() { environment_.unset({"TEV_API_LOG_LEVEL"}); }

  // Fast, and with the fake plug-in. A word without "--" is an option of that plug-in.
  static std::vector<std::string> commandLine(const std::vector<std::string>& words) {
    std::vector<std::string> all{"run", "--plugin", FAKE_PLUGIN, "--update", "5"};
    for (const std::string& word : words) {
      if (!word.starts_with("--")) all.emplace_back("--option");
      all.push_back(word);
    }
    return all;
  }

  static Result finish(HostProcess& process) {
    const int exit = process.wait();
    return {exit, linesOf(process.out()), process.err()};
  }

  static Result run(const std::vector<std::string>& words) {
    HostProcess process(commandLine(words));
    return finish(process);
  }

  std::vector<std::string> calls() const { return linesOf(test::readFile(trace_)); }

  test::TempTree tree_;
  const std::string trace_ = tree_.path("trace");
  test::Environment environment_;
};

TEST_F(RunTest, CallsInTheDocumentedOrderAndDeliversTheLastHalf) {
  const Result result =
      run({"trace=" + trace_, "samples=3", "after_stop=2", "--duration=0.2", "--format=csv"});
  EXPECT_EQ(result.exit, 0) << result.err;

  auto calls = this->calls();
  EXPECT_EQ(calls.back(), "finalize");
  calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
  EXPECT_THAT(calls, ElementsAre("construct", "initialize", "start", "progress", "stop", "progress",
                                 "finalize"));

  ASSERT_EQ(result.out.size(), 1u + 6 * 5);
  EXPECT_EQ(result.out[0], "timestamp,type,device_name,bytes,plane");
  EXPECT_EQ(result.out[1], "1000000,fake_device,alpha,0,");
  EXPECT_EQ(result.out[30], "5000000,fake_plane,be,420,1");
  EXPECT_THAT(result.err, HasSubstr("fake_plane             20             200\n"));
}

TEST_F(RunTest, ASerializerThatIsFullIsDrainedAndFilledAgain) {
  // Room for exactly one event of the largest type.
  const Result result = run({"samples=5", "burst=5", "--samples=5", "--buffer-size=26"});
  EXPECT_EQ(result.exit, 0) << result.err;
  ASSERT_EQ(result.out.size(), 6u * 5) << "every event, none twice";
  for (std::size_t i = 0; i < result.out.size(); ++i)
    EXPECT_EQ(nlohmann::json::parse(result.out[i]).at("timestamp"), (i / 6 + 1) * 1000000);

  const Result too_small = run({"--buffer-size=25"});
  EXPECT_EQ(too_small.exit, 2);
  EXPECT_THAT(too_small.err, HasSubstr("at least 26 bytes"));
}

TEST_F(RunTest, SamplesAreExactForEveryDevice) {
  const Result result = run({"burst=4", "after_stop=3", "--samples=6", "--format=jsonl"});
  EXPECT_EQ(result.exit, 0) << result.err;
  EXPECT_EQ(result.out.size(), 6u * 6);
  EXPECT_THAT(result.err,
              HasSubstr("alpha              6           1.0           0           3\n"));
}

TEST_F(RunTest, SignalsEndItCleanly) {
  for (const int signal : {SIGINT, SIGTERM}) {
    HostProcess process(commandLine({"after_stop=1", "--update=50", "trace=" + trace_}));
    process.awaitOutput();
    process.signal(signal);
    const Result result = finish(process);
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(calls().back(), "finalize");
    const auto last = nlohmann::json::parse(result.out.back());
    EXPECT_EQ(last.at("timestamp"), result.out.size() / 6 * 1000000) << "the last half is there";
  }
  // Also in the middle of a long wait.
  const auto start = std::chrono::steady_clock::now();
  HostProcess process(commandLine({"--update=3600000", "--format=csv"}));
  process.awaitOutput();
  process.signal(SIGINT);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::minutes(1));
}

TEST_F(RunTest, MeasuresJitterBesideABareLoop) {
  const Result result = run({"samples=5", "--samples=5", "--jitter", "--format=csv"});
  EXPECT_EQ(result.exit, 0) << result.err;
  // The fake's samples are a second apart.
  EXPECT_THAT(result.err,
              testing::ContainsRegex("interval +1000000\\.00 +1000000\\.0 .* 1\\.00\n"));
  EXPECT_THAT(result.err, HasSubstr("\n  bare loop "));
  EXPECT_THAT(result.err, HasSubstr("4 intervals of 1000000 us"));
}

TEST_F(RunTest, RefusalsAreExplainedWithoutAnyEnvironment) {
  struct Row {
    std::vector<std::string> words;
    std::vector<std::string> expected;
  };
  const std::string sentence = "tev-host: the plug-in could not be set up";
  const std::vector<Row> rows = {
      {{"refuse=construct", "say=debug,warning,error"},
       {sentence + ": the device is on fire\n  [debug] [fake] looking for devices\n"
                   "  [warning] [fake] half of it is missing\n"
                   "  [error] [fake] the device is on fire\n",
        "refuse=construct say=debug,warning,error"}},
      {{"refuse=construct", "say=debug,warning"}, {sentence + ": half of it is missing\n"}},
      {{"refuse=construct", "say=debug"},
       {sentence + ": looking for devices\n", "  [debug] [fake] looking for devices\n"}},
      {{"refuse=initialize", "say=error"}, {sentence + ": the device is on fire\n"}},
      {{"refuse=initialize"}, {sentence + "\n  The options were: refuse=initialize update=5\n"}},
      {{"refuse=start"}, {"; starting\n"}},
      {{"refuse=entry"}, {"lacks an entry point"}},
      {{"refuse=construct", "say=error", "--plugin=" BARE_PLUGIN}, {"a log of its own"}},
  };
  for (const Row& row : rows) {
    const Result result = run(row.words);
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.out, IsEmpty());
    for (const std::string& text : row.expected) EXPECT_THAT(result.err, HasSubstr(text));
    EXPECT_THAT(result.err, StartsWith("tev-host: ")) << "first the sentence for a person";
  }
}

TEST_F(RunTest, WhatIsNoPluginIsNamed) {
  struct Row {
    std::string path;
    const char* reason;
  };
  const std::vector<Row> rows = {{tree_.path("missing.so"), "No such file"},
                                 {tree_.folder("folder"), "not a file"},
                                 {tree_.write("text.so", "hello"), "text.so"},
                                 {SIMULATOR, "lacks construct_event_provider"}};
  for (const Row& row : rows) {
    HostProcess process({"run", "--plugin", row.path});
    const Result result = finish(process);
    EXPECT_EQ(result.exit, 1) << row.path;
    EXPECT_THAT(result.err, HasSubstr(row.reason));
    EXPECT_EQ(linesOf(result.err).size(), 1u) << result.err;
  }
}

TEST_F(RunTest, BrokenPluginsEndTheRunInGoodOrder) {
  struct Row {
    std::vector<std::string> words;
    int exit;
    const char* message;
  };
  const std::vector<Row> rows = {
      {{"wrong=magic"}, 1, "malformed event block at byte 0: it begins with 58 45 56 45"},
      {{"wrong=schema"}, 1, "there is no type 0 in schema 9"},
      {{"wrong=type"}, 1, "there is no type 256 in schema 0"},
      {{"wrong=count"}, 1, "do not fit"},
      {{"wrong=cut"}, 1, "malformed"},
      {{"wrong=overrun"}, 1, "overran"},
      {{"wrong=stuck"}, 1, "too small for one event"},
      {{"wrong=result"}, 1, "failed to deliver, 3 times"},
      {{"failures=3"}, 1, "failed to deliver, 3 times"},
      {{"failures=2", "--samples=1"}, 0, "tev-host: "},
  };
  for (const Row& row : rows) {
    auto words = row.words;
    words.push_back("trace=" + trace_);
    const Result result = run(words);
    EXPECT_EQ(result.exit, row.exit) << row.words[0] << ": " << result.err;
    EXPECT_THAT(result.err, HasSubstr(row.message));
    const auto calls = this->calls();
    EXPECT_EQ(calls.back(), "finalize") << row.words[0];
    EXPECT_EQ(std::ranges::count(calls, "stop"), std::ranges::count(calls, "finalize"));
  }
}

TEST_F(RunTest, APluginThatNeverEndsIsCutOff) {
  HostProcess process(commandLine({"wrong=endless", "after_stop=1", "--samples=1"}));
  const Result result = finish(process);
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr("cut off"));
}

TEST_F(RunTest, LostSamplesAreSaidOnceAndSummedUp) {
  const Result result = run({"lost=4", "--samples=5"});
  EXPECT_EQ(result.exit, 0);
  const std::string warning = "samples are being lost";
  const std::size_t first = result.err.find(warning);
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(result.err.find(warning, first + 1), std::string::npos);
  EXPECT_THAT(result.err,
              HasSubstr("be                 5           1.0           4           3\n"));

  HostProcess bare({"run", "--plugin", BARE_PLUGIN, "--update", "5", "--samples", "2"});
  EXPECT_THAT(finish(bare).err,
              HasSubstr("alpha              2           1.0           -           -\n"));
}

TEST_F(RunTest, OutputThatCannotBeWrittenIsAnError) {
  for (const std::string& words :
       {std::string("--output=/dev/full"), "--output=" + tree_.path("no/such/folder/file"),
        "--output=" + tree_.folder("folder")}) {
    const Result result = run({words});
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("tev-host: cannot write " + words.substr(9) + ": "));
  }
  HostProcess process(commandLine({}), "/dev/full");
  EXPECT_EQ(process.wait(), 1);
  EXPECT_THAT(process.err(), HasSubstr("cannot write standard output: No space"));
}

TEST_F(RunTest, AClosedPipeEndsItQuietly) {
  const std::string pipe = tree_.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const int reader = open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  HostProcess process(commandLine({"trace=" + trace_}), pipe);
  pollfd readable{reader, POLLIN, 0};
  ASSERT_EQ(poll(&readable, 1, 60'000), 1);
  close(reader);
  EXPECT_EQ(process.wait(), 0);
  EXPECT_EQ(process.err(), "");
  EXPECT_EQ(calls().back(), "finalize");
}

TEST_F(RunTest, LogLinesAreShownUpToTheLevel) {
  const std::vector<std::string> words{"say=debug,warning,error", "--samples=1"};
  const auto with = [&](const std::string& word) {
    auto all = words;
    all.push_back(word);
    return run(all).err;
  };
  EXPECT_THAT(run(words).err, AllOf(HasSubstr("[warning] [fake] half"), HasSubstr("[error] [fake]"),
                                    Not(HasSubstr("[debug]"))));
  EXPECT_THAT(with("--log-level=error"), Not(HasSubstr("[warning]")));
  EXPECT_THAT(with("--log-level=7"), HasSubstr("[debug] [fake] starting"));
  EXPECT_THAT(with("--log-level=0"), Not(HasSubstr("[fake]")));
}

TEST_F(RunTest, TheTableIsPlainWithoutATerminal) {
  const Result result = run({"burst=2", "--samples=4", "--format=table"});
  EXPECT_EQ(result.exit, 0);
  for (const std::string& line : result.out) EXPECT_EQ(line.find('\x1b'), std::string::npos);
  const auto last = std::find_if(result.out.begin(), result.out.end(), [](const auto& line) {
    return line.find("whole run") != std::string::npos;
  });
  ASSERT_GE(result.out.end() - last, 9) << result.err;
  EXPECT_EQ(last[2], "alpha                device             plane 0             plane 1");
  EXPECT_EQ(last[4], "  bytes    300   +300   100    310   +300   100    320   +300   100");
  EXPECT_THAT(last[6], StartsWith("be  "));
}

TEST_F(RunTest, TheBundledPluginAndSimulatorAreFound) {
  HostProcess process({"run", "--simulate", "--samples", "3", "--format", "jsonl", "--update", "20",
                       "--option", "multipath-sample-interval-usec=1000", "--log-level", "0"});
  const Result result = finish(process);
  EXPECT_EQ(result.exit, 0) << result.err;
  std::map<std::string, int> events;
  for (const std::string& line : result.out) {
    const auto event = nlohmann::json::parse(line);
    if (!event.contains("plane")) ++events[event.at("device_name")];
  }
  EXPECT_GE(events.size(), 2u);
  for (const auto& [device, count] : events) EXPECT_EQ(count, 3) << device;

  HostProcess schema({"schema", "--simulate", "--log-level", "0"});
  const Result types = finish(schema);
  EXPECT_EQ(types.exit, 0) << types.err;
  EXPECT_THAT(types.out.at(0), StartsWith("multipath_events   id "));
}

}  // namespace
}  // namespace tev::host
