#include "host/support/host_threads.h"

#include <unistd.h>

#include <mutex>

namespace tev::host {
namespace {

struct Noted {
  std::mutex mutex;
  std::set<pid_t> threads;
};

// Never destroyed: a thread may be left behind when the process ends.
Noted& noted() {
  static Noted& only = *new Noted{{}, {getpid()}};
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

HostThread::HostThread() {
  addHostThread(gettid());
}

HostThread::~HostThread() {
  removeHostThread(gettid());
}

}  // namespace tev::host
