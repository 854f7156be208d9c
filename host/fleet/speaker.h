#pragma once

#include <set>
#include <string>

namespace tev::host {

// Says a sentence of each kind once.
class Speaker {
 public:
  void sayOnce(const std::string& kind, const std::string& sentence);

  // The kind may be said again.
  void forget(const std::string& kind) { said_.erase(kind); }

 private:
  std::set<std::string> said_;
};

}  // namespace tev::host
