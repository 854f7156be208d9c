#include "host/run_options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/errors.h"
#include "tests/support/environment.h"
#include "tev/logger.h"

namespace tev::host {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

CommandLine parsed(std::vector<const char*> words) {
  words.insert(words.begin(), "tev-host");
  return parseCommandLine(static_cast<int>(words.size()), words.data(),
                          companionsOf("/opt/tev/bin"));
}

class RunOptionsTest : public testing::Test {
 protected:
  RunOptionsTest() { environment_.unset({"TEV_API_LOG_LEVEL"}); }
  test::Environment environment_;
};

TEST_F(RunOptionsTest, Defaults) {
  const CommandLine line = parsed({"run"});
  EXPECT_EQ(line.command, Command::run);
  EXPECT_EQ(line.run.plugin.path, "/opt/tev/lib/libevents_multipath_provider.so");
  EXPECT_TRUE(line.run.plugin.usual_devices);
  EXPECT_THAT(line.run.plugin.options, ElementsAre(Pair("update", "1000")));
  EXPECT_EQ(line.run.plugin.log_level, std::uint32_t{TEV_LEVEL_WARNING});
  EXPECT_FALSE(line.run.plugin.log_level_given);
  EXPECT_EQ(line.run.buffer_bytes, 1048576u);
  EXPECT_EQ(line.run.update, 1s);
  EXPECT_FALSE(line.run.format || line.run.duration || line.run.samples);
}

TEST_F(RunOptionsTest, WhatIsGivenArrives) {
  const CommandLine line = parsed({"run",
                                   "--plugin",
                                   "./mine.so",
                                   "--option",
                                   "a=b=c",
                                   "--option=list=[x,y],z",
                                   "--option",
                                   "empty=",
                                   "--buffer-size",
                                   "64k",
                                   "--update",
                                   "20",
                                   "--format=csv",
                                   "--output",
                                   "f",
                                   "--duration",
                                   "0.25",
                                   "--samples",
                                   "7",
                                   "--log-level",
                                   "debug"});
  EXPECT_EQ(line.run.plugin.path, "./mine.so");
  EXPECT_FALSE(line.run.plugin.usual_devices);
  EXPECT_THAT(line.run.plugin.options, ElementsAre(Pair("a", "b=c"), Pair("list", "[x,y],z"),
                                                   Pair("empty", ""), Pair("update", "20")));
  EXPECT_EQ(line.run.buffer_bytes, 65536u);
  EXPECT_EQ(line.run.update, 20ms);
  EXPECT_EQ(line.run.format, Format::csv);
  EXPECT_EQ(line.run.output, "f");
  EXPECT_EQ(line.run.duration, 250ms);
  EXPECT_EQ(line.run.samples, 7u);
  EXPECT_EQ(line.run.plugin.log_level, std::uint32_t{TEV_LEVEL_DEBUG});
}

TEST_F(RunOptionsTest, WhatTheUserSaysAboutAnOptionGoesFirst) {
  EXPECT_THAT(parsed({"run", "--update", "20", "--option", "update=5"}).run.plugin.options,
              ElementsAre(Pair("update", "5")));
  EXPECT_THAT(
      parsed({"run", "--simulate", "--option", "multipath-vuna-lib-path=x"}).run.plugin.options,
      Contains(Pair("multipath-vuna-lib-path", "x")).Times(1));
}

TEST_F(RunOptionsTest, SimulatorWithAndWithoutScenario) {
  const auto library =
      Pair("multipath-vuna-lib-path", "/opt/tev/lib/tev-simulator/libvuna_telemetry.so");
  struct Row {
    std::vector<const char*> words;
    const char* scenario;
  };
  const std::vector<Row> rows = {{{"run", "--simulate"}, ""},
                                 {{"run", "--simulate", "--samples", "1"}, ""},
                                 {{"run", "--simulate=netdev"}, "netdev"},
                                 {{"schema", "--simulate", "default"}, "default"},
                                 {{"run", "--simulate=/dev/null"}, "/dev/null"}};
  for (const Row& row : rows) {
    const PluginOptions plugin = parsed(row.words).run.plugin;
    EXPECT_EQ(plugin.simulator_scenario, row.scenario);
    EXPECT_THAT(plugin.options, Contains(library));
    EXPECT_FALSE(plugin.usual_devices);
  }
}

TEST_F(RunOptionsTest, TheEnvironmentSaysHowMuchIsLogged) {
  environment_.set("TEV_API_LOG_LEVEL", "6");
  EXPECT_EQ(parsed({"run"}).run.plugin.log_level, 6u);
  EXPECT_EQ(parsed({"run", "--log-level", "error"}).run.plugin.log_level, 3u);
}

TEST_F(RunOptionsTest, WrongUsageIsRefusedByName) {
  const std::vector<std::vector<const char*>> rows = {
      {"--option", "novalue"},
      {"--option", "=value"},
      {"--option", ""},
      {"--option"},
      {"--plugin"},
      {"--plugin="},
      {"--output", "--simulate"},
      {"--output=", "--simulate"},
      {"--simulate="},
      {"--simulate", "no/such/file"},
      {"--buffer-size", "0"},
      {"--buffer-size", "1Q"},
      {"--buffer-size", "-1"},
      {"--buffer-size", "K"},
      {"--buffer-size", "99999999999999999999"},
      {"--buffer-size", "18014398509481985K"},
      {"--update", "0"},
      {"--update", "-5"},
      {"--update", "1.5"},
      {"--update", "86400001"},
      {"--format", "xml"},
      {"--format", "Table"},
      {"--duration", "-1"},
      {"--duration", "0"},
      {"--duration", "nan"},
      {"--duration", "inf"},
      {"--duration", "1e300"},
      {"--duration", "1s"},
      {"--samples", "0"},
      {"--samples", "-1"},
      {"--samples", "ten"},
      {"--log-level", "loud"},
      {"--log-level", "-1"},
      {"--nonsense"},
  };
  for (auto words : rows) {
    const std::string option(words[0], std::string(words[0]).find_last_not_of('=') + 1);
    words.insert(words.begin(), "run");
    try {
      parsed(words);
      ADD_FAILURE() << "accepted: " << option << " " << words.back();
    } catch (const UsageError& error) {
      EXPECT_THAT(error.what(), HasSubstr(option));
    }
  }
  EXPECT_THROW(parsed({}), UsageError);
  EXPECT_THROW(parsed({"walk"}), UsageError);
  EXPECT_THROW(parsed({"schema", "--samples", "1"}), UsageError);
}

}  // namespace
}  // namespace tev::host
