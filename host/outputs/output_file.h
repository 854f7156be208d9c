// The file that an output writes to.
#pragma once

#include <exception>
#include <string>

namespace tev::host {

// The reader of the output has closed the pipe. This is not an error.
class ClosedPipe : public std::exception {
 public:
  const char* what() const noexcept override { return "the output was closed by its reader"; }
};

// A file or standard output, with a buffer.
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

  // The caller appends the text to be written.
  std::string& buffer() { return buffer_; }

  // Writes the contents of the buffer. Throws RunError and ClosedPipe; the contents are then lost.
  void flush();

  // Writes the contents of the buffer when it has become large.
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
