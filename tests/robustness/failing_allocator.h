// An allocator that fails on demand.
//
// It replaces malloc() and related functions. The sanitizers have their own allocator. With them,
// this one is used only by code that is linked into the program; allocations of the C library
// itself then do not fail and are not counted.
#pragma once

namespace tev::test {

// Makes only this thread's allocation number `n`, from 0, fail.
void failAllocation(long n);
// Makes all allocations of this thread fail from now on.
void failAllocations();
// Ends both. Returns whether an allocation has failed.
bool endFailing();
// The number of this thread's allocations.
long allocations();
// The number of blocks that the process holds; 0 under the sanitizers, which detect leaks
// themselves.
long blocksInUse();

// While it exists, this thread's allocations do not fail and are not counted.
class AllocationsSucceed {
 public:
  AllocationsSucceed();
  ~AllocationsSucceed();
  AllocationsSucceed(const AllocationsSucceed&) = delete;
  AllocationsSucceed& operator=(const AllocationsSucceed&) = delete;

 private:
  long before_;
  bool spared_before_;
};

}  // namespace tev::test
