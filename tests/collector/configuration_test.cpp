#include "collector/configuration.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "collector/buffer_sizing.h"
#include "tests/support/captured_log.h"
#include "tests/support/options.h"

namespace tev::events::multipath {
namespace {

using test::options;

constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();

TEST(Configuration, ReadsNumbersAndSwitchesAndTakesDefaultsForWhatIsMissing) {
  const test::CapturedLog log(TEV_LEVEL_INFO);
  logConfiguration(readConfiguration(options({}).get()));
  EXPECT_EQ(log.texts(TEV_LEVEL_INFO), (test::Texts{
                                           "[multipath] collector configuration:",
                                           "[multipath] \tsample interval: 1000000 usec",
                                           "[multipath] \tmax buffer size: 0",
                                           "[multipath] \tclear sampled counters: false",
                                           "[multipath] \tmultipath devices: all",
                                       }));
  EXPECT_EQ(readConfiguration(options({}).get()).update_msec, 1'000u);
  EXPECT_EQ(readConfiguration(options({}).get()).sdk_log_level, "warning");

  struct Row {
    const char* text;
    std::uint64_t update_msec;
    bool clear_sampled_counters = false;
  };
  const auto read = [](const char* text) {
    return readConfiguration(
        options({{"update", text}, {"multipath-clear-sampled-counters", text}}).get());
  };
  const Row rows[] = {{"250abc", 250}, {" \t+42", 42}, {"-1", kMax}, {"0x10", 0}, {"1", 1, true}};
  for (const auto& row : rows) {
    EXPECT_EQ(read(row.text).update_msec, row.update_msec) << row.text;
    EXPECT_EQ(read(row.text).clear_sampled_counters, row.clear_sampled_counters) << row.text;
  }
  for (const char* text : {"", "abc", "-"}) EXPECT_THROW(read(text), std::invalid_argument) << text;
  EXPECT_THROW(read("18446744073709551616"), std::out_of_range);
}

TEST(BufferSizing, FollowsBudgetOrRates) {
  struct Row {
    const char* name;
    std::uint64_t budget, interval_usec, update_msec, sample_size, samples;
  };
  const Row rows[] = {
      {"the last number that is doubled", 0, 1'000, 999, 50, 2'000},
      {"above a thousand, a hundred to spare", 0, 999, 1'000, 50, 1'101},
      {"a long update counts in whole seconds", 0, 1'000, 1'001, 50, 2'100},
      {"of which there may be just so many", 0, 1'000, 2'000, 50, 2'100},
      {"an update that does not divide a second", 0, 1'000, 300, 50, 666},
      {"more than a second between samples", 0, 2'000'000, 1'000, 50, 20},
      {"no interval", 0, 0, 2'000, 50, 20},
      {"no update", 0, 1'000, 0, 50, 20},
      {"budget cuts off", 1'049, 1, 1, 50, 20},
      {"budget of exactly one", 50, 1, 1, 50, 1},
      {"budget below one sample", 49, 1, 1, 50, 2},
      {"a sample without bytes", 1, 1, 1, 0, 0},
  };
  for (const auto& row : rows) {
    Configuration configuration;
    configuration.max_buffer_size = row.budget;
    configuration.sample_interval_usec = row.interval_usec;
    configuration.update_msec = row.update_msec;
    EXPECT_EQ(samplesPerBuffer(configuration, row.sample_size), row.samples) << row.name;
  }

  Configuration too_large;
  too_large.sample_interval_usec = 1;
  for (const auto update : {kMax, kMax - 999, kMax / 1'000}) {
    too_large.update_msec = update;
    EXPECT_THROW(samplesPerBuffer(too_large, 50), std::length_error) << update;
  }
}

}  // namespace
}  // namespace tev::events::multipath
