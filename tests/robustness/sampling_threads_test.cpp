// Several sampling threads in one provider.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <future>
#include <thread>
#include <utility>

#include "tests/robustness/failing_allocator.h"
#include "tests/support/captured_log.h"
#include "tests/support/fake_machine.h"
#include "tests/support/local_provider.h"
#include "tests/support/options.h"

namespace tev::test {
namespace {

using namespace std::chrono_literals;

// A provider with several devices, and its host.
class Rack : public FakeMachine {
 public:
  static constexpr std::size_t kDevices = 16;

  // Devices whose only counter is the number of their reads.
  void construct(std::size_t devices, const char* threads, const char* interval) {
    for (std::size_t i = 0; i < devices; ++i) sdk.add(nameOf(i), {"reads, r"}, {0});
    const auto prior = sdk.on_read;
    sdk.on_read = [=](const std::string& device, auto& values) {
      ++values[0];
      if (prior) prior(device, values);
    };
    provider.construct(options({{"multipath-sampling-threads", threads},
                                {"multipath-sample-interval-usec", interval},
                                {"multipath-max-buffer-size", "65536"}})
                           .get());
  }

  static std::string nameOf(std::size_t device) { return "d" + std::to_string(10 + device); }

  // Every event follows the one before it, and the devices of a batch are in order.
  void take() {
    std::size_t last = 0;
    for (const auto& event : provider.drain()) {
      const auto device = std::stoul(event.device.substr(1)) - 10;
      EXPECT_GE(device, last);
      last = device;
      std::uint32_t read = 0;
      std::memcpy(&read, event.bytes.data() + 3, sizeof read);
      EXPECT_EQ(read, ++delivered[device]);
    }
  }

  void stopAndExpectExact(std::size_t devices) {
    provider.stop();
    take();
    take();
    for (std::size_t i = 0; i < devices; ++i) {
      const auto ledger = provider.collector().ledger(i);
      EXPECT_EQ(ledger.delivered, delivered[i]) << nameOf(i);
      EXPECT_EQ(ledger.read_refused + ledger.nothing_filled + ledger.discarded, 0u);
    }
  }

  // The number of warnings with this text in them.
  std::ptrdiff_t lines(const std::string& wanted) {
    const auto texts = log.texts(TEV_LEVEL_WARNING);
    return std::count_if(texts.begin(), texts.end(), [&](const std::string& text) {
      return text.find(wanted) != std::string::npos;
    });
  }

  CapturedLog log{TEV_LEVEL_WARNING};
  LocalProvider provider{liveSurroundings()};
  std::array<std::uint32_t, kDevices> delivered{};  // by device
};

TEST(SamplingThreads, DeliverEachSampleOnceAndInOrder) {
  constexpr std::pair<const char*, const char*> kThreadsAndIntervals[] = {
      {"1", "500"}, {"3", "0"}, {"3", "500"}, {"0", "500"}, {"1000", "500"}};
  for (const auto& [threads, interval] : kThreadsAndIntervals) {
    SCOPED_TRACE(std::string(threads) + " at " + interval);
    Rack rack;
    rack.construct(Rack::kDevices, threads, interval);
    ASSERT_TRUE(rack.provider.initialize());
    while (*std::min_element(rack.delivered.begin(), rack.delivered.end()) < 20) rack.take();
    rack.stopAndExpectExact(Rack::kDevices);
  }
}

// A pass lasts longer than a swap waits for it, but no read hangs.
TEST(SamplingThreads, SlowPassesDeliverEveryBatchAndAreNotCalledHung) {
  Rack rack;
  rack.sdk.on_read = [](auto&, auto&) { std::this_thread::sleep_for(5ms); };
  rack.construct(16, "2", "1000");
  ASSERT_TRUE(rack.provider.initialize());
  for (int fetch = 0; fetch < 10; ++fetch) {
    rack.take();
    std::this_thread::sleep_for(50ms);
  }
  EXPECT_GE(*std::min_element(rack.delivered.begin(), rack.delivered.end()), 5u);
  rack.stopAndExpectExact(16);
  EXPECT_EQ(rack.lines("in a read"), 0);
}

TEST(SamplingThreads, AReadThatHangsCostsItsOwnThreadOnly) {
  Rack rack;
  std::promise<void> asked;
  std::promise<void> answer;
  rack.sdk.on_read = [&, answered = answer.get_future().share()](const std::string& device,
                                                                 const auto& values) {
    if (device != "d12" || values[0] != 4) return;
    asked.set_value();
    answered.wait();
  };
  rack.construct(4, "4", "1000");
  ASSERT_TRUE(rack.provider.initialize());
  asked.get_future().wait();
  const auto before = rack.delivered;
  while (rack.delivered[0] < 100 || rack.delivered[1] < 100 || rack.delivered[3] < 100) rack.take();
  EXPECT_EQ(rack.delivered[2], before[2]);
  EXPECT_GT(rack.provider.collector().ledger(2).left_out, 0u);
  EXPECT_LT(rack.provider.collector().ledger(1).left_out,
            rack.provider.collector().ledger(2).left_out);

  std::thread host([&] { rack.provider.stop(); });
  while (rack.lines("stop waits for the read of device d12") == 0)
    std::this_thread::sleep_for(10ms);
  answer.set_value();
  host.join();
  rack.stopAndExpectExact(4);
  EXPECT_EQ(rack.delivered[2], 4u);
  EXPECT_EQ(rack.lines("Device d12 has been in a read for "), 1);
  EXPECT_EQ(rack.lines("Device d12 answers again"), 1);
}

// Each allocation of the start fails once, those of the C library for a thread included.
TEST(SamplingThreads, StartAllOrNone) {
  Rack rack;
  rack.construct(3, "3", "1000");
  auto& collector = rack.provider.collector();
  ASSERT_TRUE(collector.initialize());
  long failed = 0;
  for (bool started = false; !started; ++failed) {
    ASSERT_LT(failed, 100);
    failAllocation(failed);
    try {
      started = collector.start();
      endFailing();
    } catch (const std::exception&) {
      endFailing();
      const auto taken = rack.provider.counts().taken;
      std::this_thread::sleep_for(5ms);
      EXPECT_EQ(rack.provider.counts().taken, taken);
    }
  }
  EXPECT_GE(failed, 3);
}

}  // namespace
}  // namespace tev::test
