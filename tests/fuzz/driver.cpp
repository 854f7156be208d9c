// Runs a fuzz target without libFuzzer: every seed as it is, then a fixed number of mutations of
// them, the same ones each time.
//
//   target [-runs=N] [-seed=N] seed-file-or-folder...
//
// While it runs, <target>.input in the working folder holds the input of the moment. It stays there
// after a crash; "target -runs=0 target.input" then repeats it.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMaxInput = 4096;

std::string readFile(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

// In the order of their names, which is the same everywhere.
std::vector<fs::path> filesIn(const fs::path& path) {
  if (!fs::is_directory(path)) return {path};
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(path)) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

class Mutator {
 public:
  Mutator(std::vector<std::string> seeds, std::uint64_t seed)
      : seeds_(std::move(seeds)), random_(seed) {
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
  std::size_t below(std::size_t end) { return end == 0 ? 0 : random_() % end; }

  // Mostly one of the seeds' own: those are what the parsers look for.
  char character() {
    if (characters_.empty() || below(4) == 0) return static_cast<char>(below(256));
    return characters_[below(characters_.size())];
  }

  std::string pieceOf(const std::string& text) {
    const std::size_t from = below(text.size() + 1);
    return text.substr(from, below(text.size() - from + 1));
  }

  void mutate(std::string& input) {
    const std::size_t at = below(input.size() + 1);
    switch (below(6)) {
      case 0:
        input.insert(at, 1, character());
        break;
      case 1:
        if (at < input.size()) input[at] = character();
        break;
      case 2:
        input.erase(at, 1 + below(8));
        break;
      case 3:
        input.insert(at, pieceOf(input));
        break;
      case 4:
        input.insert(at, pieceOf(seeds_[below(seeds_.size())]));
        break;
      case 5:
        input.insert(at, below(200), character());
        break;
    }
  }

  std::vector<std::string> seeds_;
  std::string characters_;
  std::mt19937_64 random_;
};

// The file that holds the input of the moment; gone once all inputs have been survived.
class CurrentInput {
 public:
  explicit CurrentInput(std::string path)
      : path_(std::move(path)),
        fd_(open(path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)) {}
  ~CurrentInput() {
    close(fd_);
    unlink(path_.c_str());
  }
  CurrentInput(const CurrentInput&) = delete;
  CurrentInput& operator=(const CurrentInput&) = delete;

  bool keep(const std::string& input) {
    const auto size = static_cast<ssize_t>(input.size());
    return pwrite(fd_, input.data(), input.size(), 0) == size && ftruncate(fd_, size) == 0;
  }

 private:
  std::string path_;
  int fd_;
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
    for (const auto& file : filesIn(argv[i])) seeds.push_back(readFile(file));
  }
  if (seeds.empty()) {
    std::fprintf(stderr, "%s: no seeds\n", argv[0]);
    return 2;
  }

  CurrentInput current(fs::path(*argv).filename().string() + ".input");
  const auto run = [&](const std::string& input) {
    if (!current.keep(input)) std::fprintf(stderr, "cannot write the input down\n");
    // A copy of exactly its size: the sanitizers see a look beyond its end.
    const std::vector<std::uint8_t> bytes(input.begin(), input.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  };
  for (const auto& input : seeds) run(input);
  Mutator mutator(std::move(seeds), seed);
  for (std::uint64_t i = 0; i < runs; ++i) run(mutator.next());
  std::printf("%s: %llu mutations, seed %llu\n", argv[0], static_cast<unsigned long long>(runs),
              static_cast<unsigned long long>(seed));
  return 0;
}
