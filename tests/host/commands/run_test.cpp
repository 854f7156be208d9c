// The whole program, as a user starts it, with a scripted plug-in.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tests/host/process.h"
#include "tests/support/environment.h"

namespace tev::host {
namespace {

using nlohmann::json;
using test::HostProcess;
using test::Result;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

class RunTest : public testing::Test {
 protected:
  RunTest() { environment_.unset({"TEV_API_LOG_LEVEL"}); }

  // Fast, and with the fake plug-in. A word without "--" is an option of that plug-in.
  std::string commandLine(const std::string& words) const {
    std::string all = "run --plugin " FAKE_PLUGIN " --update=5 --option trace=" + trace_;
    for (const std::string& word : test::wordsOf(words))
      all += (word.starts_with("--") ? " " : " --option ") + word;
    return all;
  }

  Result run(const std::string& words) const { return HostProcess(commandLine(words)).finish(); }

  std::vector<std::string> calls() const { return test::linesOf(test::readAll(trace_)); }

  test::TempTree tree_;
  const std::string trace_ = tree_.path("trace");
  test::Environment environment_;
};

TEST_F(RunTest, CallsInTheDocumentedOrderAndDeliversTheLastHalf) {
  const Result result = run("after_stop=2 --duration=0.2 --format=csv");
  EXPECT_EQ(result.exit, 0) << result.err;
  auto calls = this->calls();
  const auto stop = std::ranges::find(calls, "stop");
  const auto samples = static_cast<std::size_t>(std::count(calls.begin(), stop, "progress")) + 2;
  ASSERT_EQ(result.out.size(), 1 + 4 * samples);
  EXPECT_EQ(result.out[0], "timestamp,type,device_name,plane,bytes");
  EXPECT_EQ(result.out[8], "2000000,fake_plane,be,1,110");

  calls.erase(std::unique(calls.begin(), calls.end()), calls.end());
  EXPECT_THAT(calls, ElementsAre("construct", "initialize", "start", "progress", "stop", "progress",
                                 "finalize"));
}

TEST_F(RunTest, TheTableOfARunWithoutSamplesSaysSo) {
  const Result result = run("burst=0 failed=3 --duration=0.1 --format=table");
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.out, testing::Contains("No samples arrived."));
  EXPECT_THAT(result.out, testing::Each(Not(StartsWith("Waiting"))));
}

TEST_F(RunTest, OneSigtermIsSufficientWhenThePluginDoesNotStop) {
  HostProcess process(commandLine("hang=stop"));
  process.awaitOutput();
  process.signal(SIGTERM);
  const Result result = process.finish();
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("waited 10 s for the plug-in to stop: the program ends now"));
  EXPECT_THAT(result.err, HasSubstr("fake_plane"));
}

TEST_F(RunTest, ASerializerThatIsFullIsDrainedAndFilledAgain) {
  // Room for exactly one event of the largest type.
  const Result result = run("burst=5 --samples=5 --buffer-size=26");
  EXPECT_EQ(result.exit, 0) << result.err;
  ASSERT_EQ(result.out.size(), 4u * 5) << "every event, none twice";
  for (std::size_t i = 0; i < result.out.size(); ++i)
    EXPECT_EQ(json::parse(result.out[i]).at("timestamp"), (i / 4 + 1) * 1000000);

  const Result too_small = run("--buffer-size=25");
  EXPECT_EQ(too_small.exit, 2);
  EXPECT_THAT(too_small.err, HasSubstr("at least 26 bytes"));
}

TEST_F(RunTest, SamplesAreExactForEveryDeviceAndSummedUp) {
  const Result result =
      run("burst=4 after_stop=3 lost=4 failed=3 --samples=10 --format=csv --jitter");
  EXPECT_EQ(result.exit, 0);
  EXPECT_EQ(result.out.size(), 1 + 4u * 10);
  for (const char* const line :
       {"alpha             10           1.0           0           3           0\n",
        "be                10           1.0           4           3           0\n",
        "fake_plane            40             400\n", "\n  bare loop ",
        "9 intervals of 1000000 us"})
    EXPECT_THAT(result.err, HasSubstr(line));
  EXPECT_EQ(run("--jitter --option=multipath-sample-interval-usec=0").exit, 2);

  const std::string warning = "samples are being lost";
  EXPECT_NE(result.err.find(warning), std::string::npos);
  EXPECT_EQ(result.err.find(warning), result.err.rfind(warning)) << "said once";

  EXPECT_THAT(
      run("--samples=2 --plugin=" BARE_PLUGIN).err,
      HasSubstr("alpha              2           1.0           -           -           -\n"));
}

TEST_F(RunTest, SignalsEndItCleanly) {
  for (const int signal : {SIGINT, SIGTERM}) {
    HostProcess process(commandLine("after_stop=1 --update=50"));
    process.awaitOutput();
    process.signal(signal);
    const Result result = process.finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    EXPECT_EQ(calls().back(), "finalize");
    EXPECT_EQ(json::parse(result.out.back()).at("timestamp"), result.out.size() / 4 * 1000000);
  }
  // Also in the middle of a long wait.
  HostProcess process(commandLine("--update=3600000 --format=csv"));
  process.awaitOutput();
  process.signal(SIGINT);
  EXPECT_EQ(process.finish().exit, 0);
}

TEST_F(RunTest, RefusalsAreExplainedWithoutAnyEnvironment) {
  const std::string refused = "tev-host: the plug-in could not be set up";
  const std::pair<std::string, std::string> rows[] = {
      {"refuse=construct say=debug,warning,error",
       refused + ": the device is on fire\n  [debug] [fake] looking for devices\n"
                 "  [warning] [fake] half of it is missing\n"
                 "  [error] [fake] the device is on fire\n  The options were: trace="},
      {"refuse=construct say=warning,error,clean-up", refused + ": the device is on fire\n"},
      {"refuse=construct say=warning,clean-up", refused + ": cleaned up\n"},
      {"refuse=initialize", refused + "\n  The options were: "},
      {"refuse=entry", "tev-host: the plug-in's provider record lacks an entry point\n"},
      {"refuse=construct say=error --plugin=" BARE_PLUGIN,
       refused + "\n  It keeps a log of its own, which may say why.\n"},
      {"--plugin=" + tree_.path("missing.so"), "No such file"},
      {"--plugin=" + tree_.write("\u202ex", "hello"), "\\xe2\\x80\\xaex"},
      {"--plugin=" + tree_.write("text.so", "hello"), "text.so"},
      {"--plugin=" SIMULATOR, "it lacks construct_event_provider\n"}};
  for (const auto& [words, expected] : rows) {
    const Result result = run(words);
    EXPECT_EQ(result.exit, 1) << words;
    EXPECT_THAT(result.out, IsEmpty());
    EXPECT_THAT(result.err, HasSubstr(expected));
    EXPECT_THAT(result.err, StartsWith("tev-host: ")) << "first the sentence for a person";
  }
}

TEST_F(RunTest, BrokenPluginsEndTheRunInGoodOrder) {
  const struct {
    const char* words;
    int exit;
    const char* message;
  } rows[] = {
      {"wrong=magic", 1, "tev-host: event block at byte 0: it begins with 58 45 56 45"},
      {"wrong=overrun", 1, "the plug-in overran the serializer: 1048577 bytes of 1048576"},
      {"wrong=stuck", 1, "too small for one event"},
      {"failures=3", 1, "failed to deliver, 3 times"},
      {"failures=2 --samples=1", 0, "tev-host: "},
      {"wrong=endless after_stop=1 --samples=1", 0, "cut off"},
  };
  for (const auto& [words, exit, message] : rows) {
    const Result result = run(words);
    EXPECT_EQ(result.exit, exit) << words << ": " << result.err;
    EXPECT_THAT(result.err, HasSubstr(message));
    const auto calls = this->calls();
    EXPECT_EQ(calls.back(), "finalize") << words;
    EXPECT_EQ(std::ranges::count(calls, "stop"), std::ranges::count(calls, "finalize"));
  }
}

TEST_F(RunTest, OutputThatCannotBeWrittenIsAnError) {
  for (const std::string& path : {std::string("/dev/full"), tree_.path("no/such/folder/file")}) {
    const Result result = run("--output=" + path);
    EXPECT_EQ(result.exit, 1);
    EXPECT_THAT(result.err, HasSubstr("tev-host: cannot write " + path + ": "));
  }
  const Result result = HostProcess(commandLine(""), "/dev/full").finish();
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write standard output: No space"));
}

TEST_F(RunTest, LogLinesAreShownUpToTheLevel) {
  const std::string words = "say=debug,warning,error --samples=1";
  EXPECT_THAT(run(words).err, AllOf(HasSubstr("[error] [fake] the device"),
                                    HasSubstr("[warning] [fake] half"), Not(HasSubstr("[debug]"))));
  EXPECT_THAT(run(words + " --log-level=7").err,
              AllOf(HasSubstr("[error] [fake] the device"), HasSubstr("[debug] [fake] looking"),
                    HasSubstr("[debug] [fake] starting")));
}

TEST_F(RunTest, TheSchemaIsShown) {
  const Result result = HostProcess("schema --plugin=" FAKE_PLUGIN).finish();
  EXPECT_EQ(result.exit, 0) << result.err;
  ASSERT_EQ(result.out.size(), 6u);
  EXPECT_THAT(result.out[0], StartsWith("fake   id "));
  EXPECT_EQ(result.out[2], "fake_plane   10 bytes");
  EXPECT_EQ(result.out[3], "       0  char[5]       device_name  [key 1] its name");
  EXPECT_EQ(result.out[5], "       6  uint32_t      bytes        a counter");
}

Result runSimulated(const std::string& words) {
  return HostProcess(
             "run --simulate --update=10 --samples=3 --option "
             "multipath-sample-interval-usec=1000 " +
             words)
      .finish();
}

TEST(OptionsOfThePlugin, AreCheckedAgainstItsOwnTable) {
  const Result refused = runSimulated("--option update=abc");
  EXPECT_EQ(refused.exit, 1);
  EXPECT_THAT(refused.err,
              StartsWith("tev-host: the plug-in could not be set up: update=abc: not a number;"));

  const Result odd = runSimulated("--option updat=1 --option multipath-devices=rdma0,,rdma9");
  EXPECT_EQ(odd.exit, 0);
  EXPECT_THAT(odd.err,
              StartsWith("tev-host: updat=1: the plug-in does not know this key; did you "
                         "mean update?\ntev-host: multipath-devices=rdma0,,rdma9: not among "
                         "the sampled devices: rdma9; sampled are: rdma0\ntev-host: "));
  // Warnings of the set-up are expected with the simulator.
  EXPECT_THAT(odd.err, Not(HasSubstr("No network interface found")));
  EXPECT_THAT(runSimulated("--log-level=warning").err, HasSubstr("No network interface found"));
}

TEST(OptionsOfThePlugin, AreTheTableInTheReadme) {
  const auto rows = HostProcess("options --markdown").finish().out;
  ASSERT_GT(rows.size(), 2u);
  auto readme = test::linesOf(test::readAll(README));
  readme.erase(readme.begin(), std::ranges::find(readme, "## Options"));
  readme.erase(readme.begin(), std::ranges::find(readme, rows[0]));
  readme.erase(std::ranges::find(readme, ""), readme.end());
  EXPECT_EQ(rows, readme);

  const Result none = HostProcess("options --plugin=" FAKE_PLUGIN).finish();
  EXPECT_EQ(none.exit, 1);
  EXPECT_THAT(none.err, HasSubstr("describes no options"));
}

TEST(IntervalOfARun, IsComparedWithTheLinkSpeed) {
  const std::string slow = "--option multipath-sample-interval-usec=50000 --filter=rdma2 ";
  EXPECT_THAT(runSimulated(slow + "--link-speed=400").err,
              StartsWith("tev-host: rdma2: at 400 Gbit/s, tx_bytes, rx_bytes need an interval of "
                         "at most 21.5 ms, and it is 50 ms: the rates are not certain; choose "
                         "multipath-sample-interval-usec=21474 or less\n"));
  for (const char* const words : {"--link-speed=100", ""})
    EXPECT_THAT(runSimulated(slow + words).err, Not(HasSubstr("Gbit/s"))) << words;
}

TEST(SummaryOfARun, SaysWhySamplesAreMissing) {
  test::TempTree files;
  const std::string scenario = files.write("scenario.json", R"({"base": "default",
      "status_names": {"42": "LINK_ON_FIRE"},
      "faults": [{"function": "vuna_telemetry_mp_get_counters", "device": "rdma1",
                  "call": 2, "status": 42},
                 {"function": "vuna_telemetry_mp_get_counters", "device": "rdma2",
                  "call": 2, "latency_usec": 200000}]})");
  const std::string summary =
      runSimulated(
          "--jitter --option multipath-sampling-threads=0 --option update=1000 --simulate=" +
          scenario)
          .err;
  EXPECT_THAT(summary, testing::ContainsRegex(
                           "\n  rdma1: 1 refused by the device;.* last failure: LINK_ON_FIRE\n"));
  EXPECT_THAT(summary, testing::ContainsRegex("\n  rdma2: .*[1-9] times left out of a batch, "));
  EXPECT_THAT(summary, testing::ContainsRegex("\n  CPU per pass .*\n  tev-sampler-0 +[0-9.]+ .*"
                                              "\n  tev-sampler-1 .*\n  tev-sampler-2 .*"
                                              "\n  bare wake-up "));
}

// The examples, with the simulated adapters that they are for.
TEST(SelectionOfARun, WritesTheExamplesColumnsUnderTheirAliases) {
  const std::string sets =
      "--fset=" EXAMPLES "/congestion.fset --cset=" EXAMPLES "/congestion.cset";
  const Result result = runSimulated(sets + " --filter=-rdma1 --format=csv");
  ASSERT_EQ(result.exit, 0) << result.err;
  ASSERT_EQ(result.out.size(), 1u + 3 * (1 + 4 + 1 + 2));
  EXPECT_EQ(result.out[0],
            "timestamp,type,device_name,congestion_notifications,ecn_marks,path_switches,plane,"
            "round_trip_usec,rate_mbps");
  EXPECT_THAT(result.out, testing::Each(Not(HasSubstr("rdma1"))));
  EXPECT_THAT(result.err, Not(HasSubstr("rdma1")));
}

TEST(SelectionOfARun, EndsWhenNothingIsLeft) {
  test::TempTree tree;
  const std::string kept = tree.write("kept", "keep");
  const std::string types = tree.write("types", "[multipath_event_device_0]\n");  // rdma2's alone
  for (const auto& [words, reason] :
       {std::pair{"--filter=" + std::string(200, 'x'), "--filter xxx"},
        {"--filter=rdma0 --fset=" + types, "The devices are: rdma2"},
        {"--output=" + kept + " --fset=" + tree.path("none"),
         "The types, and their fields, are"}}) {
    const Result result = runSimulated(words);
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.err, HasSubstr(reason));
  }
  EXPECT_EQ(test::readAll(kept), "keep") << "an earlier recording survives a mistake";
}

}  // namespace
}  // namespace tev::host
