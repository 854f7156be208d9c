#include "host/timing/thread_times.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "host/support/host_threads.h"

namespace tev::host {
namespace {

TEST(ThreadTimes, AThreadBelongsToThePluginUnlessTheHostHasNotedIt) {
  std::atomic<pid_t> ids[3] = {0, 0, 0};
  std::atomic<bool> is_over = false;
  std::thread host([&] {
    const HostThread noted;
    ids[0] = gettid();
    while (!is_over) std::this_thread::yield();
  });
  addHostThreadNames("lib:");
  std::thread library([&] {
    pthread_setname_np(pthread_self(), "lib:main");
    ids[2] = gettid();
    while (!is_over) std::this_thread::yield();
  });
  std::thread plugin([&] {
    ids[1] = gettid();
    while (!is_over) std::this_thread::yield();
  });
  while (ids[0] == 0 || ids[1] == 0 || ids[2] == 0) std::this_thread::yield();
  const auto times = pluginThreadTimes();
  is_over = true;
  host.join();
  plugin.join();
  library.join();
  EXPECT_FALSE(times.contains(ids[0]));
  EXPECT_FALSE(times.contains(getpid()));
  EXPECT_FALSE(times.contains(ids[2]));
  EXPECT_TRUE(times.contains(ids[1]));
  EXPECT_FALSE(hostThreads().contains(ids[0]));
}

}  // namespace
}  // namespace tev::host
