#include "host/plugin/plugin_thread.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <utility>

#include "host/support/host_threads.h"
#include "src/support/signals_blocked.h"

namespace tev::host {
namespace {

constexpr std::chrono::milliseconds kSlice{50};  // of a wait

std::atomic<bool> any_left_behind{false};

}  // namespace

struct PluginThread::State {
  std::mutex mutex;  // guards everything below
  std::condition_variable changed;
  std::function<void()> call;
  bool busy = false;  // from start() to the end of the call
  bool ending = false;
  std::exception_ptr error;
};

PluginThread::PluginThread() : state_(std::make_shared<State>()) {
  const support::AsynchronousSignalsBlocked blocked;  // the main thread handles the signals
  thread_ = std::thread([state = state_] { work(*state); });
}

PluginThread::~PluginThread() {
  bool busy = false;
  {
    const std::scoped_lock lock(state_->mutex);
    state_->ending = true;
    busy = state_->busy;
  }
  state_->changed.notify_all();
  if (busy) {
    any_left_behind = true;
    thread_.detach();
  } else {
    thread_.join();
  }
}

void PluginThread::work(State& state) {
  const HostThread noted;
  std::unique_lock lock(state.mutex);
  while (true) {
    state.changed.wait(lock, [&] { return state.ending || state.busy; });
    if (!state.busy) return;
    lock.unlock();
    std::exception_ptr error;
    try {
      state.call();
    } catch (...) {
      error = std::current_exception();
    }
    lock.lock();
    state.error = error;
    state.busy = false;
    state.changed.notify_all();
  }
}

void PluginThread::start(std::function<void()> call) {
  {
    const std::scoped_lock lock(state_->mutex);
    state_->call = std::move(call);
    state_->busy = true;
  }
  state_->changed.notify_all();
}

bool PluginThread::wait(const Interrupted& interrupted) {
  std::unique_lock lock(state_->mutex);
  while (!state_->changed.wait_for(lock, kSlice, [&] { return !state_->busy; })) {
    lock.unlock();
    if (interrupted()) return false;
    lock.lock();
  }
  if (const auto error = std::exchange(state_->error, nullptr)) std::rethrow_exception(error);
  return true;
}

bool PluginThread::run(std::function<void()> call, const Interrupted& interrupted) {
  if (!wait(interrupted)) return false;
  start(std::move(call));
  return wait(interrupted);
}

bool PluginThread::isBusy() const {
  const std::scoped_lock lock(state_->mutex);
  return state_->busy;
}

void PluginThread::endProcess(int exit_code) {
  if (!any_left_behind) std::exit(exit_code);
  std::fflush(nullptr);
  _exit(exit_code);
}

}  // namespace tev::host
