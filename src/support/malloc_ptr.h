#pragma once

#include <cstdlib>
#include <memory>

namespace tev::support {

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

// Owns memory from malloc() and related functions. Such memory can be passed to and from other
// modules.
template <class T>
using MallocPtr = std::unique_ptr<T, Free>;

}  // namespace tev::support
