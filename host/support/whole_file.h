// A file that has its name only when it is complete.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tev::host {

class WholeFile {
 public:
  // Creates a file with another name beside the path. A pipe or a device is written directly; "-"
  // is standard output. Throws RunError.
  explicit WholeFile(const std::string& path);

  // Removes the file unless it was finished.
  ~WholeFile();
  WholeFile(const WholeFile&) = delete;
  WholeFile& operator=(const WholeFile&) = delete;

  // Throws RunError.
  void write(std::string_view text);

  // Gives the file its name. An existing file is replaced. Without `is_forced_out`, the name may
  // lead to an incomplete file after a power cut. Throws RunError.
  void finish(bool is_forced_out = true);

  std::uint64_t size() const { return size_; }  // bytes that were written
  int descriptor() const { return descriptor_; }
  const std::string& path() const { return path_; }  // without symbolic links

 private:
  [[noreturn]] void fail(int error) const;

  std::string path_;
  std::string unfinished_;  // the other name; empty: there is none
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace tev::host
