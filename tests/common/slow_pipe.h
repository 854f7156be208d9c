#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>

namespace tev::test {

// A named pipe, with a writer that opens it late, writes a text, and closes it late.
class SlowPipe {
 public:
  SlowPipe(const std::string& path, std::chrono::milliseconds opens_after, const std::string& text,
           std::chrono::milliseconds closes_after)
      : path_(path) {
    if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make " + path);
    writer_ = std::thread([=] {
      std::this_thread::sleep_for(opens_after);
      std::ofstream out(path);
      out << text << std::flush;
      std::this_thread::sleep_for(closes_after);
    });
  }

  // The writer may still wait for a reader.
  ~SlowPipe() {
    const int reader = open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    writer_.join();
    close(reader);
    unlink(path_.c_str());
  }

  SlowPipe(const SlowPipe&) = delete;
  SlowPipe& operator=(const SlowPipe&) = delete;

 private:
  std::string path_;
  std::thread writer_;
};

}  // namespace tev::test
