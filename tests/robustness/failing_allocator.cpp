#include "tests/robustness/failing_allocator.h"

#include <atomic>
#include <cstddef>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TEV_OWN_ALLOCATOR 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TEV_OWN_ALLOCATOR 0
#endif
#endif
#ifndef TEV_OWN_ALLOCATOR
#define TEV_OWN_ALLOCATOR 1
#endif

namespace {

// This thread's; -1: off.
thread_local long allocations_until_failure = -1;
thread_local bool has_failed = false;
std::atomic<long> blocks_in_use{0};

}  // namespace

#if TEV_OWN_ALLOCATOR

namespace {

bool mustFail() {
  if (allocations_until_failure < 0 || allocations_until_failure-- > 0) return false;
  has_failed = true;
  return true;
}

void* counted(void* block) {
  if (block) blocks_in_use.fetch_add(1, std::memory_order_relaxed);
  return block;
}

}  // namespace

extern "C" {

void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void __libc_free(void* block);

void* malloc(std::size_t size) {
  return mustFail() ? nullptr : counted(__libc_malloc(size));
}

void* calloc(std::size_t count, std::size_t size) {
  return mustFail() ? nullptr : counted(__libc_calloc(count, size));
}

void* realloc(void* block, std::size_t size) {
  if (mustFail()) return nullptr;
  void* const resized = __libc_realloc(block, size);
  return block ? resized : counted(resized);
}

void free(void* block) {
  if (block) blocks_in_use.fetch_sub(1, std::memory_order_relaxed);
  __libc_free(block);
}

}  // extern "C"

#endif

namespace tev::test {

bool canFailAllocations() {
  return TEV_OWN_ALLOCATOR;
}

void failAllocation(long n) {
  has_failed = false;
  allocations_until_failure = n;
}

bool endFailing() {
  allocations_until_failure = -1;
  return has_failed;
}

long blocksInUse() {
  return blocks_in_use.load();
}

AllocationsSucceed::AllocationsSucceed() : before_(allocations_until_failure) {
  allocations_until_failure = -1;
}

AllocationsSucceed::~AllocationsSucceed() {
  allocations_until_failure = before_;
}

}  // namespace tev::test
