#pragma once

#include <functional>
#include <memory>
#include <thread>

namespace tev::host {

// The thread that makes all calls into a plug-in, one after the other. A call that does not return
// blocks only this thread, which is one of the host.
class PluginThread {
 public:
  // Called again and again during a wait. True ends the wait.
  using Interrupted = std::function<bool()>;

  PluginThread();

  // Ends the thread. A thread whose call has not returned is left behind: it keeps what the call
  // owns, and the process must end by endProcess().
  ~PluginThread();
  PluginThread(const PluginThread&) = delete;
  PluginThread& operator=(const PluginThread&) = delete;

  // Starts a call. The previous one must have ended.
  void start(std::function<void()> call);

  // Waits for the end of the call. False when it was interrupted: the call continues. Throws what
  // the call has thrown.
  bool wait(const Interrupted& interrupted);

  // Waits for the previous call, if one was interrupted, and makes this one. False when it was
  // interrupted.
  bool run(std::function<void()> call, const Interrupted& interrupted);

  // Whether a call has not ended.
  bool isBusy() const;

  // Ends the process. If a thread was left behind, nothing is destroyed, because the code of the
  // plug-in still runs.
  [[noreturn]] static void endProcess(int exit_code);

 private:
  struct State;
  static void work(State& state);

  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace tev::host
