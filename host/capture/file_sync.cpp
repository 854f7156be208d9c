#include "host/capture/file_sync.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "host/support/host_threads.h"
#include "host/support/text.h"
#include "src/support/signals_blocked.h"

namespace tev::host {
namespace {

struct Request {
  int descriptor;  // our own copy
  std::string path;
};

std::string failureText(const std::string& path, int error) {
  return fmt::format("cannot sync {}: {}", asPrintable(path),
                     std::generic_category().message(error));
}

}  // namespace

struct FileSync::State {
  std::mutex mutex;
  std::condition_variable changed;
  std::vector<Request> requests;
  std::string failure;
  std::string busy_path;  // of the call in progress
  bool ending = false;
};

FileSync::FileSync() : state_(std::make_shared<State>()) {
  const support::AsynchronousSignalsBlocked blocked;  // the main thread handles the signals
  thread_ = std::thread([state = state_] { work(*state); });
}

FileSync::~FileSync() {
  bool is_idle = false;
  {
    const std::scoped_lock lock(state_->mutex);
    state_->ending = true;
    is_idle = state_->requests.empty() && state_->busy_path.empty();
  }
  state_->changed.notify_all();
  if (is_idle)
    thread_.join();
  else
    thread_.detach();
}

void FileSync::request(int descriptor, const std::string& path) {
  const std::scoped_lock lock(state_->mutex);
  if (std::ranges::find(state_->requests, path, &Request::path) != state_->requests.end()) return;
  const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
  if (copy < 0) {
    state_->failure = failureText(path, errno);
    return;
  }
  state_->requests.push_back({copy, path});
  state_->changed.notify_all();
}

std::string FileSync::takeFailure() {
  const std::scoped_lock lock(state_->mutex);
  return std::exchange(state_->failure, {});
}

std::string FileSync::wait(std::chrono::seconds limit) {
  std::unique_lock lock(state_->mutex);
  const bool is_done = state_->changed.wait_for(
      lock, limit, [this] { return state_->requests.empty() && state_->busy_path.empty(); });
  if (!is_done)
    return fmt::format("{} could not be synced within {} s", asPrintable(state_->busy_path),
                       limit.count());
  return std::exchange(state_->failure, {});
}

void FileSync::work(State& state) {
  const HostThread noted;
  std::unique_lock lock(state.mutex);
  while (true) {
    state.changed.wait(lock, [&] { return state.ending || !state.requests.empty(); });
    if (state.requests.empty()) return;
    const Request request = std::move(state.requests.front());
    state.requests.erase(state.requests.begin());
    state.busy_path = request.path;
    lock.unlock();
    const int error = fdatasync(request.descriptor) == 0 ? 0 : errno;
    close(request.descriptor);
    lock.lock();
    state.busy_path.clear();
    if (error != 0 && state.failure.empty()) state.failure = failureText(request.path, error);
    state.changed.notify_all();
  }
}

}  // namespace tev::host
