// The file that an output writes to.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <vector>

namespace tev::host {

// The reader of the output has closed the pipe. This is not an error.
class ClosedPipe : public std::exception {
 public:
  const char* what() const noexcept override { return "the output was closed by its reader"; }
};

// A file or standard output, with a buffer. Writing to a pipe or a terminal waits for its reader
// only as long as the run wants to wait. It knows which records did not reach the file.
//
// When writing has failed or was given up, later texts are only counted as missing.
class OutputFile {
 public:
  // Standard output for an empty path and for "-". A named pipe is opened as soon as it has a
  // reader. Throws RunError, also when a request to stop ends the wait for the reader.
  explicit OutputFile(const std::string& path);
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Empties an existing file.
  void begin();

  bool isTerminal() const;
  int descriptor() const { return descriptor_; }
  const std::string& name() const { return name_; }  // for messages

  // On a terminal, special characters are replaced, unless the writer of the texts does this.
  void keepEscapes() { replaces_special_ = false; }

  // `is_worth_waiting` is called again and again while the reader takes nothing, with the time
  // since it took something. When it returns false, writing is given up.
  using Patience = std::function<bool(std::chrono::steady_clock::duration stalled)>;
  void whileStalled(Patience is_worth_waiting) { is_worth_waiting_ = std::move(is_worth_waiting); }

  // The caller appends the text to be written.
  std::string& buffer() { return buffer_; }

  // What is appended from now on belongs to a record of this number, until the next record, the end
  // of the record or a flush. If a regular file cannot take all of the text, it ends with a whole
  // record.
  void beginRecord(std::size_t number);
  void endRecord();

  // Writes the contents of the buffer. Throws RunError and ClosedPipe.
  void flush();

  // Writes the contents of the buffer when it has become large.
  void flushWhenLarge();

  // Flushes and closes; some file systems report a failed write only then.
  void close();

  // The numbers of the records that did not reach the file, and the bytes that did not.
  const std::vector<std::size_t>& missingRecords() const { return missing_records_; }
  std::uint64_t missingBytes() const { return missing_bytes_; }

  // Whether the wait for the reader was given up.
  bool isGivenUp() const { return given_up_; }

 private:
  // A part of the buffer.
  struct Record {
    std::size_t number;
    std::size_t begin;
    std::size_t end;
  };

  [[noreturn]] void fail(int error) const;
  std::size_t lastBoundary(std::size_t at) const;
  std::size_t writeToRegularFile();
  std::size_t writeToReader();
  void settle(std::size_t written);

  std::string name_;
  int descriptor_ = -1;
  bool owned_ = false;
  bool is_regular_ = false;
  bool replaces_special_ = true;
  Patience is_worth_waiting_;
  std::string buffer_;
  std::vector<Record> records_;  // in the buffer
  bool in_record_ = false;
  int error_ = 0;  // of the write that failed
  bool ended_ = false;
  bool given_up_ = false;
  std::vector<std::size_t> missing_records_;
  std::uint64_t missing_bytes_ = 0;
};

}  // namespace tev::host
