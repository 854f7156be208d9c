// Runs a fuzz target without libFuzzer: every seed as it is, then a fixed number of mutations of
// them, the same ones each time.
//
//   target [-runs=N] [-seed=N] seed-file-or-folder...
//
// While it runs, <target>.input in the working directory holds the current input. It stays there
// after a crash; "target -runs=0 target.input" then repeats it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <system_error>
#include <utility>
#include <vector>

#include "tests/support/temp_tree.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxInput = 4096;

// In the order of their names, which is the same everywhere.
std::vector<fs::path> filesIn(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files{fs::directory_iterator(path), {}};
  std::sort(files.begin(), files.end());
  return files;
}

class Mutator {
 public:
  Mutator(const std::vector<std::string>& seeds, std::uint64_t seed)
      : seeds_(seeds), random_(seed) {
    for (const auto& text : seeds_) characters_ += text;
  }

  std::string next() {
    std::string input = seeds_[below(seeds_.size())];
    do mutate(input);
    while (below(4) != 0);
    input.resize(std::min(input.size(), kMaxInput));
    return input;
  }

 private:
  std::size_t below(std::size_t end) { return random_() % end; }

  // Usually a piece of a seed, because the seeds contain what the parsers look for.
  char character() {
    if (characters_.empty() || below(4) == 0) return static_cast<char>(below(256));
    return characters_[below(characters_.size())];
  }

  std::string pieceOf(const std::string& text) {
    const std::size_t from = below(text.size() + 1);
    return text.substr(from, below(text.size() - from + 1));
  }

  // Replaces up to a few bytes by a piece or by nothing.
  void mutate(std::string& input) {
    const std::string pieces[] = {{},
                                  std::string(1, character()),
                                  std::string(below(200), character()),
                                  pieceOf(input),
                                  pieceOf(seeds_[below(seeds_.size())])};
    const std::size_t length = below(2) == 0 ? 0 : 1 + below(8);
    input.replace(below(input.size() + 1), length, pieces[below(std::size(pieces))]);
  }

  const std::vector<std::string>& seeds_;
  std::string characters_;
  std::mt19937_64 random_;
};

// Keeps the input of the moment. The file stays open: to close one that has been cut is to wait for
// the disk.
class CurrentInput {
 public:
  explicit CurrentInput(fs::path path)
      : path_(std::move(path)), descriptor_(open(path_.c_str(), O_RDWR | O_CREAT, 0644)) {}
  CurrentInput(const CurrentInput&) = delete;
  CurrentInput& operator=(const CurrentInput&) = delete;
  ~CurrentInput() {
    close(descriptor_);
    std::error_code ignored;
    fs::remove(path_, ignored);
  }

  void write(const std::string& input) const {
    if (ftruncate(descriptor_, static_cast<off_t>(input.size())) != 0 ||
        pwrite(descriptor_, input.data(), input.size(), 0) != static_cast<ssize_t>(input.size()))
      std::fprintf(stderr, "cannot write the input down\n");
  }

 private:
  fs::path path_;
  int descriptor_;
};

bool readOption(std::string_view argument, std::string_view name, std::uint64_t& value) {
  if (!argument.starts_with(name)) return false;
  value = std::strtoull(argument.data() + name.size(), nullptr, 10);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::uint64_t runs = 20'000;
  std::uint64_t seed = 1;
  std::vector<std::string> seeds;
  for (int i = 1; i < argc; ++i) {
    if (readOption(argv[i], "-runs=", runs) || readOption(argv[i], "-seed=", seed)) continue;
    for (const auto& file : filesIn(argv[i])) seeds.push_back(tev::test::readAll(file.string()));
  }
  if (seeds.empty()) {
    std::fprintf(stderr, "%s: no seeds\n", argv[0]);
    return 2;
  }

  const CurrentInput current(fs::path(*argv).filename().concat(".input"));
  const auto run = [&](const std::string& input) {
    current.write(input);
    // A copy of exactly its size, so that the sanitizers detect a read beyond its end.
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  };
  for (const auto& input : seeds) run(input);
  Mutator mutator(seeds, seed);
  for (std::uint64_t i = 0; i < runs; ++i) run(mutator.next());
  std::printf("%s: %llu mutations, seed %llu\n", argv[0], static_cast<unsigned long long>(runs),
              static_cast<unsigned long long>(seed));
  return 0;
}
