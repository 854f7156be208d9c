// Where the output goes.
#pragma once

#include <exception>
#include <string>

namespace tev::host {

// Nobody reads the output any more. Not an error: the run has done its work.
class ClosedPipe : public std::exception {
 public:
  const char* what() const noexcept override { return "the output was closed by its reader"; }
};

// A file or standard output, written through a buffer of its own.
class OutputFile {
 public:
  // Standard output for an empty path and for "-". Throws RunError.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Empties an existing file.
  void begin();

  bool isTerminal() const;
  int descriptor() const { return descriptor_; }

  // What is to be written; append to it.
  std::string& buffer() { return buffer_; }

  // Writes the buffer out. Throws RunError and ClosedPipe, and drops the buffer then.
  void flush();

  // Writes the buffer out once it has grown large.
  void flushWhenLarge();

  // Flushes and closes; some file systems report a failed write only then.
  void close();

 private:
  [[noreturn]] void fail(int error) const;

  std::string name_;  // for messages
  int descriptor_ = -1;
  bool owned_ = false;
  std::string buffer_;
};

}  // namespace tev::host
