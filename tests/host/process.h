// tev-host as a process of its own.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/temp_tree.h"

namespace tev::test {

inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

inline std::vector<std::string> wordsOf(const std::string& text) {
  std::istringstream in(text);
  return {std::istream_iterator<std::string>(in), {}};
}

struct Result {
  int exit;  // or minus the signal that ended it
  std::vector<std::string> out;
  std::string err;
};

// Runs from construction on. The shell reads the words. Standard output is kept, unless `output` is
// where it goes.
class HostProcess {
 public:
  explicit HostProcess(const std::string& words, const std::string& output = {}) {
    const std::string command = "exec " TEV_HOST " " + words + " </dev/null 2>" + err_ + " >" +
                                (output.empty() ? out_ : output);
    pid_ = fork();
    if (pid_ < 0) throw std::runtime_error("cannot start " TEV_HOST);
    if (pid_ > 0) return;
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  ~HostProcess() {
    if (pid_ <= 0) return;
    signal(SIGKILL);
    finish();
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void signal(int number) const { ::kill(pid_, number); }

  // Each of these waits until the stream holds something, or the process has ended.
  void awaitOutput() const { await(out_, ""); }
  void awaitError(const std::string& text) const { await(err_, text); }

  // Waits for its end.
  Result finish() {
    int status = 0;
    ::waitpid(std::exchange(pid_, -1), &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status), linesOf(readAll(out_)),
            readAll(err_)};
  }

 private:
  void await(const std::string& path, const std::string& text) const {
    siginfo_t ended{};
    while (ended.si_pid == 0) {
      const std::string all = readAll(path);
      if (!all.empty() && all.find(text) != std::string::npos) return;
      waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  TempTree tree_;
  const std::string out_ = tree_.path("out");
  const std::string err_ = tree_.path("err");
  pid_t pid_ = -1;
};

}  // namespace tev::test
