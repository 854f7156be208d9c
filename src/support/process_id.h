#pragma once

#include <cstdint>

namespace tev::support {

// The process in which an object was created. Children of fork() are other processes. The
// comparison does not need a system call.
class ProcessId {
 public:
  // Throws std::bad_alloc when the fork handler cannot be registered.
  ProcessId();

  bool isCurrent() const noexcept;

 private:
  std::uint32_t forks_;  // number of forks between the first process and this one
};

}  // namespace tev::support
