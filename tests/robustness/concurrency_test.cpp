// Several providers in one process, and what one of them may make the others wait for.

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <thread>

#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"
#include "tests/support/plugin.h"

namespace tev::test {
namespace {

// Threads that log and read counts until this ends.
class Bystanders {
 public:
  explicit Bystanders(const std::function<void()>& work) {
    for (auto& thread : threads_)
      thread = std::thread([this, work] {
        while (!ended_) work();
      });
  }
  ~Bystanders() {
    ended_ = true;
    for (auto& thread : threads_) thread.join();
  }
  Bystanders(const Bystanders&) = delete;
  Bystanders& operator=(const Bystanders&) = delete;

 private:
  std::atomic<bool> ended_{false};
  std::thread threads_[2];
};

TEST(Concurrency, ProvidersAtFullSpeedKeepToThemselves) {
  TempTree tree;
  setenv("VUNA_SIMULATOR_SCENARIO", tree.write("scenario.json", kCountedReads).c_str(), 1);
  const CapturedLog log(TEV_LEVEL_WARNING);
  const Plugin plugin;
  plugin.shareLogger();
  const auto get = plugin.symbol<decltype(multipath_event_provider_get_sample_counts)>(
      "multipath_event_provider_get_sample_counts");

  constexpr int kProviders = 3;
  std::atomic<std::uint64_t> delivered{0};
  const auto live = [&] {
    HostedProvider provider(plugin, options({{"multipath-vuna-lib-path", SIMULATOR},
                                             {"multipath-sample-interval-usec", "0"},
                                             {"multipath-max-buffer-size", "65536"}})
                                        .get());
    ASSERT_TRUE(provider.initialize());
    const Bystanders bystanders([&] {
      tev_multipath_sample_counts_t counts{};
      ASSERT_TRUE(get(provider.get(), TEV_ALL_DEVICES, nullptr, &counts));
      TEV_LOG_WARNING("%llu taken", static_cast<unsigned long long>(counts.taken));
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    });
    std::uint64_t devices = 0;
    std::uint32_t reads = 0;
    const auto take = [&] {
      for (const auto& event : provider.drain()) {
        if (event.type == "multipath_event_plane") continue;
        std::uint32_t read = 0;
        std::memcpy(&read, event.bytes.data() + 5, sizeof read);
        ASSERT_TRUE(devices == 0 || read > reads);  // each once, in order
        reads = read;
        ++devices;
      }
    };
    while (devices < 1'000) take();
    provider->stop(provider.get());
    take();
    take();
    tev_multipath_sample_counts_t counts{};
    get(provider.get(), TEV_ALL_DEVICES, nullptr, &counts);
    EXPECT_EQ(counts.taken, counts.lost + devices);
    EXPECT_EQ(counts.failed, 0u);
    delivered += devices;
  };
  std::thread hosts[kProviders];
  for (auto& thread : hosts)
    thread = std::thread([&] {
      for (int life = 0; life < 5; ++life) live();
    });
  for (auto& thread : hosts) thread.join();
  std::printf("samples delivered side by side: %llu\n", static_cast<unsigned long long>(delivered));
}

// A host and its provider of one of the fake's devices, with the machine's clocks.
class OneDevice {
 public:
  OneDevice(FakeSdk& sdk, const TempTree& tree, const char* device)
      : types_(tev_create_type_system(), tev_destroy_type_system),
        provider_(options({{"multipath-devices", device},
                           {"multipath-sample-interval-usec", "1000"},
                           {"update", "100"}})
                      .get(),
                  {.sdk = &sdk.functions(), .roots = {tree.path("sys"), tree.path("dev")}}),
        buffer_(1 << 16) {
    record_.name = device;
    record_.version = 1;
    EXPECT_TRUE(provider_.initialize(&record_, types_.get()));
  }
  ~OneDevice() { provider_.stop(); }
  OneDevice(const OneDevice&) = delete;
  OneDevice& operator=(const OneDevice&) = delete;

  // Bytes that were there to be delivered.
  std::uint64_t drain() {
    tev_data_serializer_t serializer{types_.get(), buffer_.data(), buffer_.size(), 0};
    EXPECT_EQ(provider_.progress(0, &serializer), TEV_PROGRESS_DONE);
    return serializer.used;
  }

  void stop() { provider_.stop(); }
  std::uint64_t taken() const { return provider_.collector().sampleCounts(0).taken; }

 private:
  tev_event_provider_t record_{};
  std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)> types_;
  Provider provider_;
  std::vector<std::uint8_t> buffer_;
};

TEST(Concurrency, AReadThatHangsDelaysOnlyWhatMustWaitForIt) {
  const TempTree tree;
  FakeSdk sdk;
  sdk.add("hanging", {"x, r"}, {1});
  sdk.add("lively", {"x, r"}, {1});
  std::promise<void> answer;
  std::promise<void> asked;
  sdk.on_read = [&, answered = answer.get_future().share(), reads = 0](FakeDevice& dev) mutable {
    if (dev.name != "hanging" || ++reads != 3) return;
    asked.set_value();
    answered.wait();
  };
  const CapturedLog log(TEV_LEVEL_WARNING);
  OneDevice hanging(sdk, tree, "hanging");
  OneDevice lively(sdk, tree, "lively");
  asked.get_future().wait();

  // Meanwhile the other provider samples and delivers, counts can be read, and lines be logged.
  std::uint64_t bytes = 0;
  while (bytes < 1'000) bytes += lively.drain();
  EXPECT_EQ(hanging.taken(), 2u);
  TEV_LOG_WARNING("logged meanwhile");
  EXPECT_TRUE(log.contains(TEV_LEVEL_WARNING, "logged meanwhile"));

  // The provider's own swap and its stop wait, and end with the read.
  std::atomic<bool> stopped{false};
  std::thread host([&] {
    EXPECT_GT(hanging.drain(), 0u);
    hanging.stop();
    stopped = true;
  });
  for (bytes = 0; bytes < 1'000;) bytes += lively.drain();
  EXPECT_FALSE(stopped);
  answer.set_value();
  host.join();
  EXPECT_GE(hanging.taken(), 3u);
}

// Printed, and held to no limit: machines differ.
TEST(Concurrency, StopDoesNotWaitForTheInterval) {
  const TempTree tree;
  FakeSdk sdk;
  sdk.add("a", {"x, r"}, {1});
  double longest_ms = 0;
  for (const char* const interval : {"3600000000", "18446744073709551615", "1000", "0"}) {
    Provider provider(options({{"multipath-sample-interval-usec", interval},
                               {"multipath-max-buffer-size", "65536"}})
                          .get(),
                      {.sdk = &sdk.functions(), .roots = {tree.path("sys"), tree.path("dev")}});
    ASSERT_TRUE(provider.collector().initialize());
    for (int i = 0; i < 20; ++i) {
      provider.collector().start();
      std::this_thread::sleep_for(std::chrono::milliseconds(i % 3));
      const auto begin = std::chrono::steady_clock::now();
      provider.stop();
      const std::chrono::duration<double, std::milli> took =
          std::chrono::steady_clock::now() - begin;
      longest_ms = std::max(longest_ms, took.count());
    }
  }
  std::printf("longest stop: %.3f ms\n", longest_ms);
}

}  // namespace
}  // namespace tev::test
