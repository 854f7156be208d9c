#include "host/support/host_threads.h"

#include <unistd.h>

#include <algorithm>
#include <mutex>

namespace tev::host {
namespace {

struct Noted {
  std::mutex mutex;
  std::set<pid_t> threads;
  std::set<std::string> names;  // their beginnings
};

// Never destroyed: a thread may be left behind when the process ends.
Noted& noted() {
  static Noted& only = *new Noted{{}, {getpid()}, {}};
  return only;
}

}  // namespace

void addHostThread(pid_t thread) {
  Noted& all = noted();
  const std::lock_guard lock(all.mutex);
  all.threads.insert(thread);
}

void removeHostThread(pid_t thread) {
  Noted& all = noted();
  const std::lock_guard lock(all.mutex);
  all.threads.erase(thread);
}

std::set<pid_t> hostThreads() {
  Noted& all = noted();
  const std::lock_guard lock(all.mutex);
  return all.threads;
}

void addHostThreadNames(const std::string& begin) {
  Noted& all = noted();
  const std::lock_guard lock(all.mutex);
  all.names.insert(begin);
}

bool isHostThreadName(std::string_view name) {
  Noted& all = noted();
  const std::lock_guard lock(all.mutex);
  return std::ranges::any_of(all.names,
                             [&](const std::string& begin) { return name.starts_with(begin); });
}

HostThread::HostThread() {
  addHostThread(gettid());
}

HostThread::~HostThread() {
  removeHostThread(gettid());
}

}  // namespace tev::host
