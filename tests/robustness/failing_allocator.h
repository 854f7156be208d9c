// An allocator that fails when it is told to.
//
// It stands in for malloc() and its kin. Under the sanitizers, which have an allocator of their
// own, it is put before that one in the code that is linked into the program; what the C library
// allocates for itself then neither fails nor counts.
#pragma once

namespace tev::test {

// Has this thread's allocation number `n`, from 0, fail, and no other.
void failAllocation(long n);
// Ends that. Whether it has come to it.
bool endFailing();
// How often this thread has asked for memory.
long allocations();
// Blocks that the process holds; 0 under the sanitizers, which count for themselves.
long blocksInUse();

// While it lives, this thread's allocations neither fail nor count.
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
