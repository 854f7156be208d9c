#include "host/capture/file_sync.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

#include "host/support/text.h"
#include "src/support/signals_blocked.h"

namespace tev::host {

FileSync::FileSync() {
  const support::AsynchronousSignalsBlocked blocked;  // the main thread handles the signals
  thread_ = std::thread([this] { work(); });
}

FileSync::~FileSync() {
  {
    const std::scoped_lock lock(mutex_);
    ending_ = true;
  }
  changed_.notify_one();
  thread_.join();
}

void FileSync::request(int descriptor, const std::string& path) {
  const std::scoped_lock lock(mutex_);
  if (std::ranges::find(requests_, path, &Request::path) != requests_.end()) return;
  const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) {
    failure_ = fmt::format("cannot sync {}: {}", asPrintable(path),
                           std::generic_category().message(errno));
    return;
  }
  requests_.push_back({copy, path});
  changed_.notify_one();
}

std::string FileSync::takeFailure() {
  const std::scoped_lock lock(mutex_);
  return std::exchange(failure_, {});
}

void FileSync::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return ending_ || !requests_.empty(); });
    if (requests_.empty()) return;
    const Request request = std::move(requests_.front());
    requests_.erase(requests_.begin());
    lock.unlock();
    const int error = fdatasync(request.descriptor) == 0 ? 0 : errno;
    close(request.descriptor);
    lock.lock();
    if (error != 0 && failure_.empty())
      failure_ = fmt::format("cannot sync {}: {}", asPrintable(request.path),
                             std::generic_category().message(error));
  }
}

}  // namespace tev::host
