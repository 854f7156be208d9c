#include "tests/robustness/failing_allocator.h"

#include <atomic>
#include <cerrno>
#include <cstddef>

#if SANITIZED  // linked with --wrap
#define REPLACED(name) __wrap_##name
#define ORIGINAL(name) __real_##name
#else
#define REPLACED(name) name
#define ORIGINAL(name) __libc_##name
#endif

namespace {

// This thread's; -1: off.
thread_local long allocations_until_failure = -1;
thread_local bool all_fail = false;
thread_local bool has_failed = false;
thread_local long allocations_so_far = 0;
thread_local bool spared = false;
std::atomic<long> blocks_in_use{0};

bool mustFail() {
  allocations_so_far += !spared;
  if (!all_fail && (allocations_until_failure < 0 || allocations_until_failure-- > 0)) return false;
  has_failed = true;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) {
  if (block && !SANITIZED) blocks_in_use.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

extern "C" {

void* ORIGINAL(malloc)(std::size_t size);
void* ORIGINAL(calloc)(std::size_t count, std::size_t size);
void* ORIGINAL(realloc)(void* block, std::size_t size);
#if !SANITIZED
void* __libc_memalign(std::size_t alignment, std::size_t size);

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  return mustFail() ? nullptr : counted(__libc_memalign(alignment, size));
}
#endif
void ORIGINAL(free)(void* block);

void* REPLACED(malloc)(std::size_t size) {
  return mustFail() ? nullptr : counted(ORIGINAL(malloc)(size));
}

void* REPLACED(calloc)(std::size_t count, std::size_t size) {
  return mustFail() ? nullptr : counted(ORIGINAL(calloc)(count, size));
}

void* REPLACED(realloc)(void* block, std::size_t size) {
  if (mustFail()) return nullptr;
  void* const resized = ORIGINAL(realloc)(block, size);
  return block ? resized : counted(resized);
}

void REPLACED(free)(void* block) {
  if (block && !SANITIZED) blocks_in_use.fetch_sub(1, std::memory_order_relaxed);
  ORIGINAL(free)(block);
}

}  // extern "C"

namespace tev::test {

void failAllocation(long n) {
  has_failed = false;
  allocations_until_failure = n;
}

void failAllocations() {
  has_failed = false;
  all_fail = true;
}

bool endFailing() {
  all_fail = false;
  allocations_until_failure = -1;
  return has_failed;
}

long allocations() {
  return allocations_so_far;
}

long blocksInUse() {
  return blocks_in_use.load();
}

AllocationsSucceed::AllocationsSucceed()
    : before_(allocations_until_failure), spared_before_(spared) {
  allocations_until_failure = -1;
  spared = true;
}

AllocationsSucceed::~AllocationsSucceed() {
  allocations_until_failure = before_;
  spared = spared_before_;
}

}  // namespace tev::test
