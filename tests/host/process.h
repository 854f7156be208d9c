// tev-host as a process of its own.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_tree.h"

extern char** environ;

namespace tev::test {

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

inline std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

// Runs from construction on. `output` replaces the file in which standard output is kept.
class HostProcess {
 public:
  explicit HostProcess(std::vector<std::string> arguments, const std::string& output = {})
      : output_(output.empty() ? tree_.path("out") : output) {
    arguments.insert(arguments.begin(), TEV_HOST);
    std::vector<char*> argv;
    for (std::string& argument : arguments) argv.push_back(argument.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output_.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0666);
    posix_spawn_file_actions_addopen(&files, STDERR_FILENO, tree_.path("err").c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0666);
    const int error = posix_spawn(&pid_, TEV_HOST, &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    if (error != 0) throw std::runtime_error("cannot start " TEV_HOST);
  }

  ~HostProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  HostProcess(const HostProcess&) = delete;
  HostProcess& operator=(const HostProcess&) = delete;

  void signal(int number) const { ::kill(pid_, number); }

  // Waits until its standard output holds something, or it has ended.
  void awaitOutput() const {
    siginfo_t ended{};
    while (readFile(output_).empty() && ended.si_pid == 0) {
      waitid(P_PID, static_cast<id_t>(pid_), &ended, WEXITED | WNOHANG | WNOWAIT);
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

  // Waits for the end; the exit code, or minus the signal that ended it.
  int wait() {
    int status = 0;
    ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
  }

  std::string out() const { return readFile(output_); }
  std::string err() const { return readFile(tree_.path("err")); }

 private:
  TempTree tree_;
  std::string output_;
  pid_t pid_ = -1;
};

}  // namespace tev::test
