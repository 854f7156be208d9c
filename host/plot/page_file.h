// The file of a page. It has its name only when it is complete.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tev::host {

class PageFile {
 public:
  // Creates a file with another name beside the path. A pipe or a device is written
  // directly; "-" is standard output. Throws
  // RunError.
  explicit PageFile(const std::string& path);

  // Removes the file unless it was finished.
  ~PageFile();
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;

  // Throws RunError.
  void write(std::string_view text);

  // Gives the file its name. An existing file is replaced. Throws RunError.
  void finish();

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
