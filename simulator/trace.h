// The record of calls, in a file that VUNA_SIMULATOR_TRACE names. The file remains after the
// library is unloaded.
#pragma once

#include <string>

namespace simulator {

// A missing part of a line is "-". Blanks and line feeds in device names are escaped.
class Trace {
 public:
  explicit Trace(const char* path);  // null or empty: no trace
  Trace(const Trace&) = delete;
  Trace& operator=(const Trace&) = delete;
  ~Trace();

  bool on() const { return descriptor_ >= 0; }

  // Writes "FUNCTION DEVICE PLACE RESULT", followed by " fault" if a fault was played. Lines of
  // different threads are not interleaved. `device` may be null.
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
