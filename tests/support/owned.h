// Objects of the library that end with their test.
#pragma once

#include <memory>

namespace tev::test {

template <auto kDestroy>
struct Destroy {
  template <class Object>
  void operator()(Object* object) const {
    kDestroy(object);
  }
};

template <class Object, auto kDestroy>
using Owned = std::unique_ptr<Object, Destroy<kDestroy>>;

}  // namespace tev::test
