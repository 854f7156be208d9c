#include "src/support/process_id.h"

#include <pthread.h>

#include <atomic>
#include <new>

namespace tev::support {
namespace {

std::atomic<std::uint32_t> forks{0};

void countFork() {
  forks.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

ProcessId::ProcessId() {
  static const bool watching = pthread_atfork(nullptr, nullptr, countFork) == 0;
  if (!watching) throw std::bad_alloc();
  forks_ = forks.load(std::memory_order_relaxed);
}

bool ProcessId::isCurrent() const noexcept {
  return forks_ == forks.load(std::memory_order_relaxed);
}

}  // namespace tev::support
