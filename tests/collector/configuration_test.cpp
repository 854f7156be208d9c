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

TEST(Configuration, TakesDefaultsForWhatIsMissing) {
  const test::CapturedLog log(TEV_LEVEL_INFO);
  const auto configuration = readConfiguration(options({}).get());
  EXPECT_EQ(configuration.update_msec, 1'000u);
  EXPECT_EQ(configuration.sdk_log_level, "warning");
  logConfiguration(configuration);
  EXPECT_EQ(log.texts(TEV_LEVEL_INFO), (test::Texts{
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
  const auto read = [](const char* text) {
    return readConfiguration(options({{"update", text}}).get()).update_msec;
  };
  for (const auto& row : rows) EXPECT_EQ(read(row.text), row.value) << row.text;
  for (const char* text : {"", "abc", "-", "%s%n"})
    EXPECT_THROW(read(text), std::invalid_argument) << text;
  EXPECT_THROW(read("18446744073709551616"), std::out_of_range);
}

TEST(Configuration, SwitchesClearingOnByThreeWordsOnly) {
  const auto clears = [](const char* text) {
    const auto dict = options({{"multipath-clear-sampled-counters", text}});
    return readConfiguration(dict.get()).clear_sampled_counters;
  };
  for (const char* on : {"1", "true", "True"}) EXPECT_TRUE(clears(on)) << on;
  for (const char* off : {"TRUE", "yes", "0", "", "1 "}) EXPECT_FALSE(clears(off)) << off;
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
      {"fewer samples than updates in a second", 0, 1'000'000, 1, 50, 20},
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
