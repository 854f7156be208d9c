// Files of tests.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

namespace tev::test {

// The contents of a file; empty when it cannot be read.
inline std::string readAll(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// A directory for one test, filled by the test and removed at its end.
class TempTree {
 public:
  TempTree() {
    std::string name = (std::filesystem::temp_directory_path() / "tev-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no temporary folder");
    root_ = name;
  }

  ~TempTree() {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }

  TempTree(const TempTree&) = delete;
  TempTree& operator=(const TempTree&) = delete;

  const std::filesystem::path& root() const { return root_; }

  // The path of an entry, which need not exist. `relative` has no leading slash.
  std::string path(std::string_view relative) const { return (root_ / relative).string(); }

  // Each of these creates what is missing above the entry, and returns its full path.
  std::string folder(std::string_view relative) {
    std::filesystem::create_directories(root_ / relative);
    return path(relative);
  }

  std::string write(std::string_view relative, std::string_view text) {
    const auto file = above(relative);
    std::ofstream out(file, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) throw std::runtime_error("cannot write " + file.string());
    return file.string();
  }

  // A symbolic link. `target` is used unchanged and need not exist.
  std::string link(std::string_view relative, std::string_view target) {
    const auto entry = above(relative);
    std::filesystem::create_symlink(target, entry);
    return entry.string();
  }

 private:
  std::filesystem::path above(std::string_view relative) const {
    auto entry = root_ / relative;
    std::filesystem::create_directories(entry.parent_path());
    return entry;
  }

  std::filesystem::path root_;
};

}  // namespace tev::test
