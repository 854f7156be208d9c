// Forces files to the disk without holding up the caller.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>

namespace tev::host {

class FileSync {
 public:
  FileSync();

  // Does not wait. A thread whose call does not return is left behind.
  ~FileSync();
  FileSync(const FileSync&) = delete;
  FileSync& operator=(const FileSync&) = delete;

  // The descriptor may be closed afterwards. A request for a file that still waits is not repeated.
  void request(int descriptor, const std::string& path);

  // The first failure since the last call; empty: none. What was written before it may be lost.
  std::string takeFailure();

  // Waits for all requests, at most this long. Returns the failure, also when the time was too
  // short.
  std::string wait(std::chrono::seconds limit);

 private:
  struct State;
  static void work(State& state);

  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace tev::host
