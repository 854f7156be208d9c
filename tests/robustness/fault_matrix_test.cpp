// Every SDK call of a provider's life goes wrong once, in every way it can.

#include <algorithm>
#include <cstdio>

#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"

namespace tev::test {
namespace {

constexpr vuna_status kRefused = 77;

// How a call goes wrong.
enum class Way { kRefuses, kDeliversNothing, kRefusesButDelivers };
constexpr Way kWays[] = {Way::kRefuses, Way::kDeliversNothing, Way::kRefusesButDelivers};
constexpr const char* kWayNames[] = {"refuses", "delivers nothing", "refuses but delivers"};

struct Traits {
  bool releases = false;  // its refusal is of no consequence
  bool has_output = true;
  const char* acquires = nullptr;  // what a success brings, as the trace calls it
};

Traits traitsOf(const std::string& function) {
  static const std::map<std::string, Traits> kSpecial = {
      {"vuna_devinfo_destroy_list", {.releases = true, .has_output = false}},
      {"vuna_dev_close", {.releases = true, .has_output = false}},
      {"vuna_telemetry_mp_stop", {.releases = true, .has_output = false}},
      {"vuna_telemetry_mp_destroy", {.releases = true, .has_output = false}},
      {"vuna_telemetry_mp_cap_is_supported", {.has_output = false}},
      {"vuna_telemetry_mp_start", {.has_output = false, .acquires = "start"}},
      {"vuna_telemetry_mp_create", {.acquires = "create"}},
      {"vuna_devinfo_create_list", {.acquires = "list"}},
  };
  const auto found = kSpecial.find(function);
  return found == kSpecial.end() ? Traits{} : found->second;
}

// What an SDK that refuses has all the same begun is its own to end: a device context or a run that
// was refused is not touched again. (A device that was refused is closed when there is a handle.)
std::vector<std::string> withoutRefused(std::vector<std::string> trace, const Traits& traits,
                                        unsigned call) {
  unsigned seen = 0;
  const auto refused = std::find_if(trace.begin(), trace.end(), [&](const std::string& entry) {
    return entry.substr(0, entry.find(' ')) == traits.acquires && ++seen == call;
  });
  EXPECT_NE(refused, trace.end());
  trace.erase(refused);
  return trace;
}

class FaultMatrix : public testing::Test {
 protected:
  // One life with one call gone wrong.
  void live(const std::string& function, unsigned call, Way way) {
    SCOPED_TRACE(function + ", call " + std::to_string(call) + ", " +
                 kWayNames[static_cast<int>(way)]);
    const Traits traits = traitsOf(function);
    const CapturedLog log;
    Rig rig;
    rig.startAt(realtime_usec_ += 3'600'000'000);
    rig.sdk.faults.push_back({.function = function,
                              .call = call,
                              .status = way == Way::kDeliversNothing ? kVunaSuccess : kRefused,
                              .delivers = way == Way::kRefusesButDelivers});
    // What is said to hold nothing is not written to.
    if (function == "vuna_telemetry_mp_cap_get_max_counter_info_len" &&
        way == Way::kDeliversNothing)
      rig.sdk.devices.at(call - 1).counter_info_length = 0;
    const Life life = rig.live();
    ++lives_;
    samples_ += life.delivered;

    Rig::expectAccountedFor(life);
    const bool was_refused_unasked = way == Way::kRefusesButDelivers && traits.acquires;
    Rig::expectInOrder(was_refused_unasked ? withoutRefused(rig.sdk.trace, traits, call)
                                           : rig.sdk.trace);
    EXPECT_TRUE(was_refused_unasked || rig.sdk.balanced());
    EXPECT_TRUE(life.constructed);
    // Counters whose names are lost are all called alike: the schema refuses the type, and says so.
    const auto errors = log.texts(TEV_LEVEL_ERROR);
    EXPECT_EQ(life.initialized, life.devices > 0 && errors.empty());
    // One call concerns one device: the other is sampled as if nothing had been. The list concerns
    // both, and so does a type that the schema refuses.
    if (life.initialized) {
      const auto best =
          std::max_element(life.delivered_of.begin(), life.delivered_of.end(),
                           [](const auto& a, const auto& b) { return a.second < b.second; });
      ASSERT_NE(best, life.delivered_of.end());
      EXPECT_EQ(best->second, unsigned{Rig::kPasses});
    }
    if (way != Way::kDeliversNothing && !traits.releases) {
      const auto lines = log.lines();
      EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [](const LogLine& line) {
        return line.text.find(statusName(kRefused)) != std::string::npos;
      })) << "the refusal is not in the log";
    }
  }

  std::uint64_t realtime_usec_ = 2'000'000'000'000'000;
  unsigned lives_ = 0;
  std::uint64_t samples_ = 0;
};

TEST_F(FaultMatrix, NoCallThatGoesWrongHurtsOrGoesUnnoticed) {
  std::map<std::string, unsigned> calls;
  {
    const CapturedLog log;
    Rig().live();  // the SDK's log is set up once for the whole process
    Rig rig;
    const Life life = rig.live();
    Rig::expectAccountedFor(life);
    ASSERT_EQ(life.devices, 2u);
    ASSERT_EQ(life.delivered, 2u * Rig::kPasses);
    ASSERT_TRUE(rig.sdk.balanced());
    calls = rig.sdk.calls;
  }
  for (const auto& [function, count] : calls) {
    const Traits traits = traitsOf(function);
    for (unsigned call = 1; call <= count; ++call) {
      for (const Way way : kWays) {
        // A release that does nothing leaves what it was to release: not the caller's to mend.
        if (traits.releases && way != Way::kRefusesButDelivers) continue;
        if (way == Way::kDeliversNothing && !traits.has_output) continue;
        // The fake's list would be nobody's.
        if (way == Way::kRefusesButDelivers && function == "vuna_devinfo_create_list") continue;
        if (function == "vuna_dev_as_devinfo" && way != Way::kDeliversNothing) continue;
        live(function, call, way);
      }
    }
  }
  EXPECT_GT(lives_, 60u);
  std::printf("calls failed: %u\nsamples delivered meanwhile: %llu\n", lives_,
              static_cast<unsigned long long>(samples_));
}

}  // namespace
}  // namespace tev::test
