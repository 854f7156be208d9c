// Several providers in one process, and how far one of them can delay the others.

#include <gtest/gtest.h>

#include <chrono>
#include <future>

#include "tests/support/local_provider.h"
#include "tests/support/threads.h"

namespace tev::test {
namespace {

using namespace std::chrono_literals;

TEST(Concurrency, ProvidersAtFullSpeedKeepToThemselves) {
  FakeMachine machine;
  const std::string names[] = {"a", "b", "c"};
  for (const auto& name : names) machine.sdk.add(name, {"reads, how often"}, {0});
  machine.sdk.on_read = [](auto&, auto& values) { ++values[0]; };
  EXPECT_TRUE(machine.sdk.balanced());  // the first use starts the SDK
  const CapturedLog log(TEV_LEVEL_WARNING);

  const auto live = [&machine](const std::string& name) {
    LocalProvider provider(machine.liveSurroundings());
    provider.construct(options({{"multipath-devices", name.c_str()},
                                {"multipath-sample-interval-usec", "0"},
                                {"multipath-max-buffer-size", "65536"}})
                           .get());
    ASSERT_TRUE(provider.initialize());
    // Meanwhile another thread logs and reads counts.
    std::atomic<bool> ended{false};
    std::thread bystander([&] {
      while (!ended) {
        TEV_LOG_WARNING("%llu taken", static_cast<unsigned long long>(provider.counts().taken));
        std::this_thread::sleep_for(200us);
      }
    });
    std::uint64_t devices = 0;
    const auto take = [&] {
      for (const auto& event : provider.drain()) {
        std::uint32_t read = 0;
        std::memcpy(&read, event.bytes.data() + 1, sizeof read);
        ASSERT_EQ(read, ++devices);  // each once, in order; what is lost is not read
      }
    };
    while (devices < 1'000) take();
    provider.stop();
    take();
    take();
    ended = true;
    bystander.join();
    EXPECT_EQ(provider.counts().taken, provider.counts().lost + devices);
  };
  onThreads(3, [&](int t) {
    for (int life = 0; life < 5; ++life) live(names[t]);
  });
}

TEST(Concurrency, AReadThatHangsDelaysOnlyWhatMustWaitForIt) {
  FakeMachine machine;
  machine.sdk.add("hanging", {"x, r"}, {1});
  machine.sdk.add("lively", {"x, r"}, {1});
  std::promise<void> answer;
  std::promise<void> asked;
  machine.sdk.on_read = [&, answered = answer.get_future().share(), reads = 0](
                            const std::string& device, auto&) mutable {
    if (device != "hanging" || ++reads != 3) return;
    asked.set_value();
    answered.wait();
  };
  const CapturedLog log(TEV_LEVEL_WARNING);
  LocalProvider hanging(machine.liveSurroundings());
  LocalProvider lively(machine.liveSurroundings());
  for (auto* const provider : {&hanging, &lively}) {
    provider->construct(options({{"multipath-devices", provider == &hanging ? "hanging" : "lively"},
                                 {"multipath-sample-interval-usec", "1000"},
                                 {"update", "100"}})
                            .get());
    ASSERT_TRUE(provider->initialize());
  }
  asked.get_future().wait();

  // Meanwhile the other provider samples and delivers, and counts can be read.
  lively.await(30);
  EXPECT_EQ(hanging.counts().taken, 2u);

  // The provider's own swap and its stop wait, and end with the read.
  std::atomic<bool> stopped{false};
  std::thread host([&] {
    EXPECT_FALSE(hanging.drain().empty());
    hanging.stop();
    stopped = true;
  });
  lively.await(30);
  EXPECT_FALSE(stopped);
  answer.set_value();
  host.join();
  EXPECT_GE(hanging.counts().taken, 3u);
}

// With all intervals, and at any moment. A lost wake-up would cause a hang.
TEST(Concurrency, StopDoesNotWaitForTheInterval) {
  FakeMachine machine;
  machine.sdk.add("a", {"x, r"}, {1});
  for (const char* const interval : {"3600000000", "18446744073709551615", "1000", "0"}) {
    events::multipath::Collector collector(options({{"multipath-sample-interval-usec", interval},
                                                    {"multipath-max-buffer-size", "65536"}})
                                               .get(),
                                           machine.liveSurroundings());
    ASSERT_TRUE(collector.initialize());
    for (int i = 0; i < 20; ++i) {
      collector.start();
      std::this_thread::sleep_for(std::chrono::milliseconds(i % 3));
      collector.stop();
    }
  }
}

}  // namespace
}  // namespace tev::test
