#include "collector/configuration.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "collector/buffer_sizing.h"
#include "collector/device_selection.h"
#include "tests/support/captured_log.h"
#include "tests/support/options.h"

namespace tev::events::multipath {
namespace {

using test::options;

constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();

TEST(Configuration, TakesDefaultsForWhatIsMissing) {
  const test::CapturedLog log(TEV_LEVEL_INFO);
  const auto configuration = readConfiguration(options({}).get());
  EXPECT_EQ(configuration.sample_interval_usec, 1'000'000u);
  EXPECT_EQ(configuration.max_buffer_size, 0u);
  EXPECT_EQ(configuration.update_msec, 1'000u);
  EXPECT_FALSE(configuration.clear_sampled_counters);
  EXPECT_EQ(configuration.sdk_log_level, "warning");
  EXPECT_EQ(configuration.devices, "");

  logConfiguration(configuration);
  EXPECT_EQ(log.texts(TEV_LEVEL_INFO), (std::vector<std::string>{
                                           "[multipath] collector configuration:",
                                           "[multipath] \tsample interval: 1000000 usec",
                                           "[multipath] \tmax buffer size: 0",
                                           "[multipath] \tclear sampled counters: false",
                                           "[multipath] \tmultipath devices: all",
                                       }));
}

TEST(Configuration, ReadsNumbersAsTheirLeadingDigits) {
  struct Row {
    const char* text;
    std::uint64_t value;
  };
  const Row rows[] = {{"250abc", 250}, {" \t42", 42}, {"+7", 7},
                      {"-1", kMax},    {"0x10", 0},   {"18446744073709551615", kMax}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    const auto dict = options({{"multipath-sample-interval-usec", row.text}});
    EXPECT_EQ(readConfiguration(dict.get()).sample_interval_usec, row.value);
  }
}

TEST(Configuration, RefusesWhatIsNoNumber) {
  for (const char* key :
       {"multipath-sample-interval-usec", "multipath-max-buffer-size", "update"}) {
    for (const char* text : {"", "abc", "-", "18446744073709551616", "%s%n"}) {
      SCOPED_TRACE(std::string(key) + "=" + text);
      try {
        readConfiguration(options({{key, text}}).get());
        FAIL();
      } catch (const std::logic_error& error) {  // invalid_argument or out_of_range
        EXPECT_STREQ(error.what(), "stoull");
      }
    }
  }
}

TEST(Configuration, SwitchesClearingOnByThreeWordsOnly) {
  for (const char* on : {"1", "true", "True"})
    EXPECT_TRUE(readConfiguration(options({{"multipath-clear-sampled-counters", on}}).get())
                    .clear_sampled_counters);
  for (const char* off : {"TRUE", "yes", "0", "", "1 "})
    EXPECT_FALSE(readConfiguration(options({{"multipath-clear-sampled-counters", off}}).get())
                     .clear_sampled_counters);
  // Stored without a value, an option cannot be told from a missing one.
  EXPECT_FALSE(readConfiguration(options({{"multipath-clear-sampled-counters", nullptr}}).get())
                   .clear_sampled_counters);
}

TEST(DeviceSelection, SplitsAtCommas) {
  EXPECT_TRUE(DeviceSelection("").all());
  EXPECT_TRUE(DeviceSelection("").contains("anything"));

  const DeviceSelection some(" eth0\t,, eth1 ,,");
  EXPECT_FALSE(some.all());
  EXPECT_TRUE(some.contains("eth0"));
  EXPECT_TRUE(some.contains("eth1"));
  EXPECT_FALSE(some.contains("ETH0"));
  EXPECT_FALSE(some.contains(""));

  const DeviceSelection none(" , ,");
  EXPECT_FALSE(none.all());
  EXPECT_FALSE(none.contains(""));

  const DeviceSelection word("all");
  EXPECT_FALSE(word.contains("eth0"));
  EXPECT_TRUE(word.contains("all"));
}

TEST(BufferSizing, FollowsBudgetOrRates) {
  struct Row {
    const char* name;
    std::uint64_t budget, interval_usec, update_msec, sample_size, samples;
  };
  const Row rows[] = {
      {"one update's samples, doubled", 0, 1'000, 1'000, 50, 2'000},
      {"the last number that is doubled", 0, 1'000, 999, 50, 2'000},
      {"above a thousand, a hundred to spare", 0, 999, 1'000, 50, 1'101},
      {"a long update counts in whole seconds", 0, 1'000, 1'500, 50, 2'100},
      {"a short update", 0, 1'000, 100, 50, 200},
      {"an update that does not divide a second", 0, 1'000, 300, 50, 666},
      {"more than a second between samples", 0, 2'000'000, 1'000, 50, 20},
      {"fewer samples than updates in a second", 0, 1'000'000, 1, 50, 20},
      {"no interval", 0, 0, 2'000, 50, 20},
      {"no update", 0, 1'000, 0, 50, 20},
      {"budget of many samples", 1'000, 1, 1, 50, 20},
      {"budget cuts off", 1'049, 1, 1, 50, 20},
      {"budget of exactly one", 50, 1, 1, 50, 1},
      {"budget below one sample", 49, 1, 1, 50, 2},
      {"a sample without bytes", 1, 1, 1, 0, 0},
      {"the largest interval", 0, kMax, 1'000, 50, 20},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    Configuration configuration;
    configuration.max_buffer_size = row.budget;
    configuration.sample_interval_usec = row.interval_usec;
    configuration.update_msec = row.update_msec;
    EXPECT_EQ(samplesPerBuffer(configuration, row.sample_size), row.samples);
  }
}

TEST(BufferSizing, RefusesWhatDoesNotFitIn64Bits) {
  Configuration configuration;
  configuration.sample_interval_usec = 1;
  for (const auto update : {kMax, kMax - 999, kMax / 1'000}) {
    configuration.update_msec = update;
    EXPECT_THROW(samplesPerBuffer(configuration, 50), std::length_error) << update;
  }
}

}  // namespace
}  // namespace tev::events::multipath
