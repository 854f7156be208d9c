// Forces files to the disk without holding up the caller.
#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tev::host {

class FileSync {
 public:
  FileSync();
  ~FileSync();  // waits for the requests
  FileSync(const FileSync&) = delete;
  FileSync& operator=(const FileSync&) = delete;

  // The descriptor may be closed afterwards. A request for a file that still waits is not repeated.
  void request(int descriptor, const std::string& path);

  // The first failure since the last call; empty: none. What was written before it may be lost.
  std::string takeFailure();

 private:
  struct Request {
    int descriptor;  // our own copy
    std::string path;
  };
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Request> requests_;
  std::string failure_;
  bool ending_ = false;
  std::thread thread_;
};

}  // namespace tev::host
