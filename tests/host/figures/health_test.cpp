#include "host/figures/health.h"

#include <gtest/gtest.h>

#include <string>

namespace tev::host {
namespace {

constexpr std::uint64_t kSecond = 1'000'000;

// Each step is an update, one second after the previous one. A device that delivers has a new
// sample at each.
TEST(HealthWatch, SaysWhichDeviceDoesNotDeliverSinceWhenAndWhatIsMissing) {
  const struct {
    const char* name;
    bool delivers;
    std::uint64_t refused;  // so far
    DeviceState state;
    std::uint64_t missing;  // reported by this update
    const char* line;       // for people
  } steps[] = {
      {"before the first fetch", false, 0, DeviceState::waiting, 0, ""},
      {"first sample", true, 0, DeviceState::sampling, 0, ""},
      {"some fail", true, 2, DeviceState::sampling, 2, ""},
      {"all fail", false, 12, DeviceState::failing, 10, "d: its reads fail: ON_FIRE"},
      {"still", false, 22, DeviceState::failing, 10, ""},
      {"is back", true, 22, DeviceState::sampling, 0, "d: delivers samples again, after 3.0 s"},
      {"a pause", false, 22, DeviceState::sampling, 0, ""},
      {"patience", false, 22, DeviceState::sampling, 0, ""},
      {"silence", false, 22, DeviceState::silent, 0, "d: no samples any more"},
  };
  HealthWatch watch(2 * kSecond);
  std::uint64_t now = 1'700'000'000 * kSecond;
  for (const auto& step : steps) {
    SCOPED_TRACE(step.name);
    if (step.delivers) watch.sample("d", now - kSecond / 2);
    watch.update({{.device = "d",
                   .failed = step.refused,
                   .refused = step.refused,
                   .last_failure = step.refused ? "ON_FIRE" : ""}},
                 now);
    ASSERT_EQ(watch.devices().size(), 1u);
    EXPECT_STREQ(nameOf(watch.devices()[0].state), nameOf(step.state));
    ASSERT_EQ(watch.missing().size(), step.missing ? 1u : 0u);
    if (step.missing) {
      const MissingSamples& missing = watch.missing()[0];
      EXPECT_STREQ(missing.cause, "refused");
      EXPECT_EQ(missing.samples, step.missing);
      EXPECT_EQ(missing.to_usec - missing.from_usec, kSecond);
    }
    std::string line;
    for (const StateChange& change : watch.changes()) line += describe(change, watch.devices()[0]);
    EXPECT_EQ(line, step.line);
    now += kSecond;
  }
  EXPECT_EQ(describe(watch.devices()[0], now - kSecond),
            "silent for 3.0 s; last sample 3.0 s ago; 22 refused by the device; last failure: "
            "ON_FIRE");
}

}  // namespace
}  // namespace tev::host
