// The interface of an output that the user controls while it runs.
#pragma once

#include <chrono>

namespace tev::host {

class Interaction {
 public:
  Interaction() = default;
  virtual ~Interaction() = default;
  Interaction(const Interaction&) = delete;
  Interaction& operator=(const Interaction&) = delete;

  // When this descriptor is readable, Output::redraw() is due, which reads it.
  virtual int descriptor() const = 0;

  // The time from one fetch to the next.
  virtual std::chrono::milliseconds interval() const = 0;
};

}  // namespace tev::host
