// Settings of the sanitizers' run-time libraries for test programs.
#if SANITIZED
#include <cstddef>
#include <cstdlib>
#include <new>

#define EXPORTED __attribute__((visibility("default")))

// Tests request sizes that exceed any memory. Such requests must return null.
#define OPTIONS "allocator_may_return_null=1:max_allocation_size_mb=256"

extern "C" {
EXPORTED const char* __asan_default_options() {
  return OPTIONS ":alloc_dealloc_mismatch=0";
}
EXPORTED const char* __tsan_default_options() {
  return OPTIONS;
}
}

// The sanitizers' version ends the process where the standard one throws.
EXPORTED void* operator new(std::size_t size) {
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
EXPORTED void* operator new[](std::size_t size) {
  return operator new(size);
}

#endif
