#pragma once

#include <cstdlib>
#include <memory>

namespace tev::support {

struct Free {
  void operator()(void* memory) const noexcept { std::free(memory); }
};

// Owns what malloc() and its kin returned: memory that changes hands with other modules.
template <class T>
using MallocPtr = std::unique_ptr<T, Free>;

}  // namespace tev::support
