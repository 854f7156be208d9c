#pragma once

#include <set>
#include <string>

#include "host/figures/figures.h"
#include "host/outputs/delivery.h"

namespace tev::host {

// Tells the user when a device fails, falls silent or delivers again, and which counters are too
// fast for the interval.
class Announcements {
 public:
  // Both must outlive this.
  Announcements(const Delivery& delivery, const Figures& figures)
      : delivery_(delivery), figures_(figures) {}

  // To be called after each update.
  void say();

 private:
  const Delivery& delivery_;
  const Figures& figures_;
  std::set<std::string> said_;  // names of counters
};

}  // namespace tev::host
