// Every SDK call of a provider's life goes wrong once, in every way it can.

#include <algorithm>
#include <cstdio>
#include <set>

#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"

namespace tev::test {
namespace {

constexpr vuna_status kRefused = 77;

struct Way {
  const char* name;
  vuna_status status;
  bool delivers;
};
constexpr Way kWays[] = {{"refuses", kRefused, false},
                         {"delivers nothing", kVunaSuccess, false},
                         {"refuses but delivers", kRefused, true}};

// One that does nothing leaves what it was to release, which is not the caller's to mend; one that
// refuses is of no consequence.
const std::set<std::string> kReleases = {"vuna_devinfo_destroy_list", "vuna_dev_close",
                                         "vuna_telemetry_mp_stop", "vuna_telemetry_mp_destroy"};
const std::set<std::string> kWithoutOutput = {"vuna_telemetry_mp_cap_is_supported",
                                              "vuna_telemetry_mp_start"};

bool isPossible(const std::string& function, const Way& way) {
  if (kReleases.contains(function)) return way.delivers;
  if (kWithoutOutput.contains(function)) return way.status != kVunaSuccess;
  if (function == "vuna_dev_as_devinfo") return way.status == kVunaSuccess;  // it has none
  return true;
}

// One life with one call gone wrong.
Life live(const std::string& function, unsigned call, const Way& way) {
  SCOPED_TRACE(function + ", call " + std::to_string(call) + ", " + way.name);
  const CapturedLog log;
  Rig rig;
  rig.sdk.faults = {
      {.function = function, .call = call, .status = way.status, .delivers = way.delivers}};
  Life life = rig.live();
  EXPECT_TRUE(rig.sdk.balanced());
  EXPECT_TRUE(life.constructed);
  // Counters whose names are lost are all called alike: the schema refuses the type, and says so.
  EXPECT_EQ(life.initialized, life.devices > 0 && log.texts(TEV_LEVEL_ERROR).empty());
  // One call concerns one device: the other is sampled as if nothing had been. The list concerns
  // both, and so does a type that the schema refuses.
  if (life.initialized) {
    EXPECT_TRUE(std::any_of(life.delivered_of.begin(), life.delivered_of.end(),
                            [](const auto& entry) { return entry.second == Rig::kPasses; }));
  }
  const auto lines = log.lines();
  EXPECT_EQ(way.status == kRefused && !kReleases.contains(function),
            std::any_of(lines.begin(), lines.end(),
                        [](const LogLine& line) {
                          return line.text.find(statusName(kRefused)) != std::string::npos;
                        }))
      << "the log says that it was refused";
  return life;
}

TEST(FaultMatrix, NoCallThatGoesWrongHurtsOrGoesUnnoticed) {
  const CapturedLog log;
  Rig().live();  // the SDK's log is set up once for the whole process
  Rig unharmed;
  EXPECT_EQ(unharmed.live().delivered, 2 * Rig::kPasses);
  EXPECT_TRUE(unharmed.sdk.balanced());

  unsigned lives = 0;
  std::uint64_t samples = 0;
  for (const auto& [function, count] : unharmed.sdk.calls)
    for (unsigned call = 1; call <= count; ++call)
      for (const Way& way : kWays) {
        if (!isPossible(function, way)) continue;
        samples += live(function, call, way).delivered;
        ++lives;
      }
  EXPECT_GT(lives, 60u);
  std::printf("calls failed: %u\nsamples delivered meanwhile: %llu\n", lives,
              static_cast<unsigned long long>(samples));
}

}  // namespace
}  // namespace tev::test
