// The record of calls that outlives the library: a file that VUNA_SIMULATOR_TRACE names.
#pragma once

#include <string>

namespace simulator {

// A missing part of a line is "-". Device names are escaped: no blank, no line feed.
class Trace {
 public:
  explicit Trace(const char* path);  // null or empty: no trace
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace();

  bool on() const { return descriptor_ >= 0; }

  // "FUNCTION DEVICE PLACE RESULT", with " fault" behind it where one was played. Lines of several
  // threads never mix. `device` may be null.
  void call(const char* function, const std::string* device, const char* place, const char* result,
            bool fault) const noexcept;
  // "MISUSE FUNCTION DEVICE WHAT"
  void misuse(const char* function, const std::string* device, const char* what) const noexcept;
  // "UNLOAD - - 0", the last line.
  void unload() const noexcept;

 private:
  int descriptor_ = -1;
};

}  // namespace simulator
