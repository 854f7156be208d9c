// tev-host check, as a user starts it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <numeric>
#include <string>

#include "tests/host/process.h"
#include "tests/support/environment.h"

namespace tev::host {
namespace {

using nlohmann::json;
using test::HostProcess;
using testing::HasSubstr;
using testing::Not;

struct Checked {
  int exit;
  json report;
};

Checked checkedAsJson(const std::string& words) {
  const auto result = HostProcess("check --format=json " + words).finish();
  return {result.exit,
          json::parse(std::accumulate(result.out.begin(), result.out.end(), std::string()))};
}

TEST(Check, DescribesWhatARunWouldSample) {
  const auto [exit, report] = checkedAsJson(
      "--simulate --update=500 --option multipath-sample-interval-usec=100000 "
      "--option multipath-sampling-threads=2 --link-speed=800");
  EXPECT_EQ(exit, 0);
  EXPECT_TRUE(report["works"]);
  EXPECT_EQ(report["sampling_threads"], 2);
  // Of each sample: 2 x (37 + 4 x 34) + (21 + 2 x 22) bytes, and 13 headers of 16 bytes.
  EXPECT_EQ(report["per_second"], json::parse(R"({"samples": 30, "events": 130, "bytes": 6190})"));
  ASSERT_EQ(report["devices"].size(), 3u);
  const json& device = report["devices"][2];
  EXPECT_EQ(device["name"], "rdma2");
  EXPECT_EQ(device["slot"], 3);
  EXPECT_EQ(device["algorithm"]["text"], "window-based congestion control");
  EXPECT_EQ(device["buffer"]["samples"], 10);
  EXPECT_EQ(device["types"][1], "multipath_event_plane_0");
  EXPECT_NEAR(report["byte_counters"][0]["most_gbits"], 85.9, 0.1);
  EXPECT_THAT(report["warnings"].dump(), HasSubstr("multipath-sample-interval-usec=10737 or less"));
  EXPECT_EQ(HostProcess("schema --simulate").finish().out[0],
            "multipath_events   id " + report["schemas"][0]["id"].get<std::string>());
  EXPECT_EQ(report["schemas"][0]["types"][3]["fields"][6]["offset"], 22);
}

TEST(Check, SaysWhetherItWouldWorkAndWarns) {
  const struct {
    const char* words;
    int exit;
    const char* expected;  // in the report
  } rows[] = {
      {"--simulate --option update=abc", 1, "update=abc: not a number"},
      {"--simulate --option multipath-devices=x", 1,
       "no device can be sampled: all 3 are left out"},
      {"--option multipath-vuna-lib-path=/no.so", 1, "VUNA lib path does not exist at: /no.so"},
      {"--plugin=/no.so", 1, "cannot load the plug-in"},
      {"--plugin=" FAKE_PLUGIN, 0, "\"devices\":null"},
      {"--simulate --option multipath-devices=rdma1", 0,
       "Skipping device rdma0 as it is not in the configured device list"},
      {"--simulate --option updat=1", 0, "did you mean update?"},
      {"--simulate --option multipath-sample-interval-usec=0", 0, "some will be lost"},
      {"--simulate --option update=20 --option multipath-sample-interval-usec=1000", 0,
       "samples will be lost: 1000 are taken from one fetch to the next"},
  };
  for (const auto& row : rows) {
    const auto [exit, report] = checkedAsJson(row.words);
    EXPECT_EQ(exit, row.exit) << row.words;
    EXPECT_EQ(report["works"], row.exit == 0);
    EXPECT_THAT(report.dump(), HasSubstr(row.expected)) << row.words;
  }
}

TEST(Check, AndSchemaEndAtTheFirstCtrlCWhenThePluginDoesNotAnswer) {
  for (const std::string command : {"check", "schema"})
    for (const std::string step : {"initialize", "stop"}) {
      test::TempTree files;
      const std::string trace = files.path("trace");
      HostProcess process(command + " --plugin=" FAKE_PLUGIN " --option hang=" + step +
                          " --option trace=" + trace);
      while (test::readAll(trace).find(step) == std::string::npos) usleep(5000);
      process.signal(SIGINT);
      const auto [exit, out, err] = process.finish();
      EXPECT_EQ(exit, 1);
      EXPECT_THAT(std::accumulate(out.begin(), out.end(), err),
                  HasSubstr(step == "stop" ? "did not release its devices"
                                           : "the set-up of the plug-in did not return"))
          << command;
    }
}

TEST(Check, NamesTheDeviceWhoseReadHangs) {
  const std::string slots = R"(", "slots": [{"counters": [{"text": "c"}]}]})";
  const std::string devices = R"({"ibdev_name": "a)" + slots + R"(, {"ibdev_name": "b)" + slots;
  test::TempTree files;
  for (const std::string device : {"a", "b"}) {
    const std::string fault = R"({"function": "vuna_telemetry_mp_get_counters", "call": 1,)"
                              R"("latency_usec": 4000000, "device": ")" +
                              device + "\"}";
    const auto scenario = files.write(
        "scenario.json", R"({"devices": [)" + devices + R"(], "faults": [)" + fault + "]}");
    const auto [exit, report] = checkedAsJson("--measure=3 --simulate=" + scenario);
    EXPECT_EQ(exit, 1);
    EXPECT_THAT(report["reason"],
                HasSubstr(device == "a" ? "and the first is a" : "it has read a, but not b"));
  }
}

TEST(Check, MeasuresStepsAndPassesWithoutClearing) {
  test::TempTree files;
  test::Environment environment;
  environment.set("VUNA_SIMULATOR_TRACE", files.path("trace"));
  const std::string words =
      "--measure=0.6 --option multipath-clear-sampled-counters=true --simulate=" +
      files.write("scenario.json", R"({"devices": [
        {"ibdev_name": "slow\u001b[2J", "slots": [{"read_latency_usec": 3000, "counters": [
          {"text": "rx, received bytes", "law": {"type": "ramp", "per_second": 5000000000}},
          {"text": "load", "law": {"type": "sine", "mean": 50, "amplitude": 40, "period_seconds": 0.1}},
          {"text": "still"}]}]},
        {"ibdev_name": "fast", "slots": [{"counters": [{"text": "c"}]}]}]})");
  const auto [exit, report] = checkedAsJson(words);
  EXPECT_EQ(exit, 0);
  const json& pass = report["measurement"]["pass"];
  EXPECT_GE(pass["mean_seconds"], 0.003);
  EXPECT_GE(pass["by_threads"][0]["seconds"], pass["by_threads"][1]["seconds"]);
  EXPECT_LT(pass["reads"][1]["seconds"], pass["reads"][0]["seconds"]);
  json counters;
  for (const json& one : report["measurement"]["counters"]) counters[one["name"]] = one;
  // The true interval is 215 ms. A read may be late.
  EXPECT_GE(counters["rx"]["largest_step"], 5'000'000);
  EXPECT_GE(counters["rx"]["highest_rate"], 4.9e9);
  EXPECT_LE(counters["rx"]["safe_interval_seconds"], 0.22);
  EXPECT_TRUE(counters["load"]["decreases"]);
  EXPECT_TRUE(counters["still"]["safe_interval_seconds"].is_null());
  EXPECT_THAT(report["warnings"].dump(), HasSubstr("which needs an interval of at most"));
  EXPECT_THAT(test::readAll(files.path("trace")), Not(HasSubstr("get_and_clear")));

  const auto text = HostProcess("check " + words).finish().out;
  EXPECT_THAT(text, testing::Contains(HasSubstr("slow\\x1b[2J")));
  EXPECT_THAT(text, testing::Each(Not(HasSubstr("\x1b"))));
}

}  // namespace
}  // namespace tev::host
