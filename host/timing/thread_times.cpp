#include "host/timing/thread_times.h"

#include <filesystem>
#include <fstream>
#include <system_error>

#include "host/support/host_threads.h"
#include "host/timing/clock_reading.h"

namespace tev::host {
namespace {

constexpr char kThreads[] = "/proc/self/task";

// As pthread_getcpuclockid() makes it. The low bits stand for the CPU time of one thread.
clockid_t cpuClockOf(pid_t thread) {
  return static_cast<clockid_t>(~static_cast<unsigned>(thread) << 3 | 6);
}

}  // namespace

std::map<pid_t, std::uint64_t> threadTimes() {
  std::map<pid_t, std::uint64_t> times;
  std::error_code unreadable;
  for (const auto& entry : std::filesystem::directory_iterator(kThreads, unreadable)) {
    const auto thread = static_cast<pid_t>(std::stol(entry.path().filename()));
    times[thread] = nowNsec(cpuClockOf(thread));
  }
  return times;
}

std::map<pid_t, std::uint64_t> pluginThreadTimes() {
  auto times = threadTimes();
  for (const pid_t thread : hostThreads()) times.erase(thread);
  std::erase_if(times, [](const auto& one) { return isHostThreadName(threadName(one.first)); });
  return times;
}

std::string threadName(pid_t thread) {
  std::ifstream file(std::filesystem::path(kThreads) / std::to_string(thread) / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

}  // namespace tev::host
