// Several sampling threads in one provider.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

// Fails on demand. A sanitizer that is linked into the program has its own function.
thread_local static long threads_until_failure = -1;  // that this thread creates
extern "C" {
__attribute__((weak)) decltype(pthread_create) __interceptor_pthread_create;
__attribute__((visibility("default"))) int pthread_create(pthread_t* thread,
                                                          const pthread_attr_t* attributes,
                                                          void* (*body)(void*), void* argument) {
  if (threads_until_failure-- == 0) return EAGAIN;
  static const auto next = reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, __func__));
  return (__interceptor_pthread_create ? __interceptor_pthread_create : next)(thread, attributes,
                                                                              body, argument);
}
}

namespace tev::test {
namespace {

using namespace std::chrono_literals;

const struct Scenario {
  const char* threads;
  long samplers;
  const char* interval;
  bool hangs;                         // one read, until the host has called stop
  std::chrono::milliseconds read{0};  // with 15 ms, a pass lasts longer than a swap waits for it
} kScenarios[] = {{"1", 1, "500", true},
                  {"3", 3, "500", true},
                  {"1000", 16, "500", true},
                  {"3", 3, "0", false},
                  {"2", 2, "90000", false, 15ms}};

// A provider with 16 devices, whose first counter is the number of their reads, and its host.
class Rack : public FakeMachine {
 public:
  static constexpr std::size_t kDevices = 16, kHanging = 1;

  explicit Rack(const Scenario& scenario) : samplers_(static_cast<std::size_t>(scenario.samplers)) {
    for (std::size_t i = 0; i < kDevices; ++i) {
      const auto counters = i == kHanging ? Texts{"reads, r", "more, m"} : Texts{"reads, r"};
      auto refused = failing(Function::vuna_telemetry_mp_get_counters, 4);
      refused.device = "d" + std::to_string(10 + i);
      sdk.scenario.faults.add(refused);
      sdk.add(*refused.device, counters, std::vector(counters.size(), 0U));
    }
    sdk.on_read = [=, this, answered = answer_.get_future().share()](auto& device, auto& values) {
      ++values[0];
      if (scenario.read > 0ms) std::this_thread::sleep_for(scenario.read);
      if (device != "d11" || !must_hang_.exchange(false)) return;
      asked_.set_value();
      answered.wait();
    };
    provider.construct(options({{"multipath-sampling-threads", scenario.threads},
                                {"multipath-sample-interval-usec", scenario.interval},
                                {"multipath-max-buffer-size", "65536"}})
                           .get());
  }

  // Every event follows the one before it, and the devices of a batch are in order.
  void take() {
    std::size_t last = 0;
    for (const auto& event : provider.drain()) {
      const auto device = std::stoul(event.device.substr(1)) - 10;
      EXPECT_LE(std::exchange(last, device), device);
      std::uint32_t read = 0;
      std::memcpy(&read, event.bytes.data() + 3, sizeof read);
      EXPECT_EQ(read, ++delivered_[device]);
    }
  }

  // Takes batches until each device has delivered so many. A hanging thread is left out.
  void takeUntil(std::uint32_t samples, bool hangs = false) {
    for (std::size_t i = 0; i < kDevices; ++i)
      while (delivered_[i] < samples && !(hangs && hangsToo(i))) take();
  }

  void hangUntilStop() {
    must_hang_ = true;
    asked_.get_future().wait();
    const auto before = delivered_;
    takeUntil(*std::max_element(before.begin(), before.end()) + 100, true);
    // The events of the device that is left out are the largest.
    while (samplers_ > 1 && provider.progress(20, [](auto...) {}) != TEV_PROGRESS_FULL) continue;
    std::thread host([this] { provider.stop(); });
    while (lines("stop waits for the read of device d11") == 0) std::this_thread::sleep_for(10ms);
    answer_.set_value();
    host.join();
    const auto hanging = provider.collector().ledger(kHanging);
    for (std::size_t i = 0; i < kDevices; ++i) {
      const auto ledger = provider.collector().ledger(i);
      EXPECT_EQ(hangsToo(i), ledger.left_out == hanging.left_out) << i;
      EXPECT_EQ(hangsToo(i), ledger.missed_by_overrun > hanging.missed_by_overrun / 2) << i;
      EXPECT_EQ(hangsToo(i), delivered_[i] == before[i]) << i;
    }
  }

  void stopAndExpectExact() {
    provider.stop();
    take();
    take();
    for (std::size_t i = 0; i < kDevices; ++i) {
      const auto ledger = provider.collector().ledger(i);
      EXPECT_EQ(ledger.delivered, delivered_[i]) << i;
      EXPECT_EQ(ledger.read_refused, 1u);
      EXPECT_EQ(ledger.nothing_filled + ledger.discarded, 0u);
    }
  }

  // The number of warnings with this text in them.
  std::size_t lines(const std::string& wanted) {
    std::size_t found = 0;
    for (const auto& text : log.texts(TEV_LEVEL_WARNING)) found += text.find(wanted) < text.size();
    return found;
  }

  CapturedLog log{TEV_LEVEL_WARNING};
  LocalProvider provider{liveSurroundings()};

 private:
  bool hangsToo(std::size_t device) const { return device % samplers_ == kHanging % samplers_; }

  const std::size_t samplers_;
  std::atomic<bool> must_hang_{false};
  std::promise<void> asked_, answer_;
  std::array<std::uint32_t, kDevices> delivered_{};
};

TEST(SamplingThreads, DeliverEachSampleOnceAndInOrderAlsoWhenAReadHangs) {
  std::size_t warned = 0;
  for (const auto& scenario : kScenarios) {
    SCOPED_TRACE(std::string(scenario.threads) + " at " + scenario.interval);
    Rack rack(scenario);
    ASSERT_TRUE(rack.provider.initialize());
    rack.takeUntil(10);
    if (scenario.hangs) rack.hangUntilStop();
    rack.stopAndExpectExact();
    warned += rack.lines("The serializer holds 20 bytes: 27 are needed for every event");
    if (!scenario.hangs && scenario.read == 0ms) continue;  // busy threads wait for a core
    for (const char* line : {"Device d11 has been in a read for ", "Device d11 answers again"})
      EXPECT_EQ(rack.lines(line), scenario.hangs && scenario.samplers > 1);
  }
  EXPECT_GE(warned, 1u);  // at most once in ten seconds
}

TEST(SamplingThreads, StartAllOrNone) {
  for (const auto& scenario : kScenarios)
    for (long failing = 0; failing <= scenario.samplers; ++failing) {
      SCOPED_TRACE(failing);
      Rack rack(scenario);
      const bool fails = failing < scenario.samplers;
      threads_until_failure = failing;
      EXPECT_EQ(rack.provider.initialize(), !fails);
      threads_until_failure = -1;
      EXPECT_EQ(rack.log.count(TEV_LEVEL_ERROR,
                               "[multipath] [multipath_event_provider_initialize] failed: "
                               "Resource temporarily unavailable"),
                fails);
      EXPECT_EQ(rack.sdk.balanced(), fails);
    }
}

}  // namespace
}  // namespace tev::test
