// A file that is complete or does not exist.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tev::host {

// The file has the suffix ".part" until it is complete.
class PartFile {
 public:
  // Creates the file. Throws RunError.
  explicit PartFile(std::string path);

  // Removes an incomplete file.
  ~PartFile();
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  const std::string& path() const { return path_; }
  std::uint64_t size() const { return size_; }  // bytes that were written

  // Throws RunError.
  void write(std::string_view bytes);

  // Gives the file its name, in place of an existing file. Throws RunError.
  void finish();

 private:
  [[noreturn]] void fail(const char* what, int error) const;

  std::string path_;
  std::string part_path_;
  int descriptor_ = -1;
  std::uint64_t size_ = 0;
};

}  // namespace tev::host
