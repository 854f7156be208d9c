// An allocator that fails when it is told to.
#pragma once

namespace tev::test {

// False under the sanitizers, which bring an allocator of their own: nothing below has an effect.
bool canFailAllocations();

// Has this thread's allocation number `n`, from 0, fail, and no other.
void failAllocation(long n);
// Ends that. Whether it has come to it.
bool endFailing();
// Blocks that the process holds.
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
};

}  // namespace tev::test
