#include "host/cli/command_line.h"

#include <gmock/gmock.h>

#include "host/support/errors.h"
#include "tests/host/process.h"
#include "tests/support/environment.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::ThrowsMessage;

CommandLine parsed(const std::vector<std::string>& words) {
  std::vector<const char*> argv{"tev-host"};
  for (const std::string& word : words) argv.push_back(word.c_str());
  return parseCommandLine(static_cast<int>(argv.size()), argv.data(), companionsOf("/opt/tev/bin"));
}

RunOptions parsedRun(const std::string& words) {
  return parsed(test::wordsOf("run " + words)).run;
}

class CommandLineTest : public testing::Test {
 protected:
  CommandLineTest() { environment_.unset({"TEV_API_LOG_LEVEL"}); }
  test::Environment environment_;
};

TEST_F(CommandLineTest, WhatIsGivenArrives) {
  const RunOptions run = parsedRun(
      "--plugin ./mine.so --option a=b=c --option=list=[x,y],z --option empty= --buffer-size 64k "
      "--update 20 --output f --duration 0.25");
  EXPECT_EQ(run.plugin.path, "./mine.so");
  EXPECT_FALSE(run.plugin.usual_devices);
  EXPECT_THAT(run.plugin.options, ElementsAre(Pair("a", "b=c"), Pair("list", "[x,y],z"),
                                              Pair("empty", ""), Pair("update", "20")));
  EXPECT_EQ(run.buffer_bytes, 65536u);
  EXPECT_EQ(run.update, 20ms);
  EXPECT_EQ(run.duration, 250ms);
  const ConsumeOptions consume =
      parsed(test::wordsOf("consume --kafka k:1 --topic t --group g --output o --sync none "
                           "--range-size 1M --prometheus 1 --prometheus-peak 5"))
          .consume;
  EXPECT_FALSE(consume.is_forced_out);
  EXPECT_EQ(consume.limits.bytes, 1u << 20);
  EXPECT_EQ(consume.prometheus->peak, 5s);
}

TEST_F(CommandLineTest, WhatTheUserSaysGoesFirst) {
  EXPECT_THAT(parsedRun("").plugin.options, ElementsAre(Pair("update", "1000")));
  EXPECT_TRUE(parsedRun("").plugin.usual_devices);
  EXPECT_THAT(parsedRun("--update 20 --option update=5").plugin.options,
              ElementsAre(Pair("update", "5")));
  EXPECT_THAT(parsedRun("--simulate --option multipath-vuna-lib-path=x").plugin.options,
              Contains(Pair("multipath-vuna-lib-path", "x")).Times(1));
  environment_.set("TEV_API_LOG_LEVEL", "6");
  EXPECT_EQ(parsedRun("").plugin.log_level, 6u);
  EXPECT_EQ(parsedRun("--log-level error").plugin.log_level, 3u);
}

TEST_F(CommandLineTest, SimulatorWithAndWithoutScenario) {
  const auto library =
      Pair("multipath-vuna-lib-path", "/opt/tev/lib/tev-simulator/libvuna_telemetry.so");
  for (const auto& [words, scenario] : {std::pair{"--simulate --samples 1", ""},
                                        {"--simulate=netdev", "netdev"},
                                        {"--simulate default", "default"}}) {
    const PluginOptions plugin = parsedRun(words).plugin;
    EXPECT_EQ(plugin.simulator_scenario, scenario);
    EXPECT_THAT(plugin.options, Contains(library));
    EXPECT_FALSE(plugin.usual_devices);
  }
}

TEST_F(CommandLineTest, WrongUsageIsRefusedByName) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"--option", {"novalue", "=value", ""}},
      {"--simulate", {"no/such/file"}},
      {"--output", {"--simulate"}},
      {"--buffer-size", {"0", "1Q", "-1", "K", "99999999999999999999", "18014398509481985K"}},
      {"--update", {"0", "-5", "1.5", "86400001"}},
      {"--format", {"xml", "Table"}},
      {"--duration", {"-1", "0", "nan", "inf", "1e300", "1s"}},
      {"--samples", {"0", "-1", "ten"}},
      {"--log-level", {"loud", "-1"}},
      {"--link-speed", {"0", "-1", "nan", "100001", "400G"}},
      {"--nonsense", {"1"}},
  };
  const auto expect_refusal = [](const std::string& name, const std::vector<std::string>& words) {
    EXPECT_THAT([&] { parsed(words); }, ThrowsMessage<UsageError>(HasSubstr(name)))
        << testing::PrintToString(words);
  };
  for (const auto& [option, values] : rows)
    for (const std::string& value : values) expect_refusal(option, {"run", option, value});
  expect_refusal("--simulate", {"run", "--simulate="});
  expect_refusal("--output", {"run", "--output=", "--simulate"});
  expect_refusal("--samples", {"schema", "--samples", "1"});
  for (const char* const value : {"0", "0.01", "5h", "1e9"})
    expect_refusal("--measure " + std::string(value) + ": a number of seconds is needed, from 0.1",
                   {"check", "--measure", value});
  expect_refusal("--format csv: text or json is needed", {"check", "--format", "csv"});
  expect_refusal("a command is needed", {});
  expect_refusal("--jitter takes no value", {"run", "--jitter=5"});
}

}  // namespace
}  // namespace tev::host
