// Signals of a thread that is not to handle those of the process.
#pragma once

#include <signal.h>

namespace tev::support {

// Blocks the process's signals in the calling thread. A thread inherits its creator's signal mask,
// so a thread that is created meanwhile does not handle them. Signals for its own faults are not
// blocked, so that a crash handler of the process runs for them.
class AsynchronousSignalsBlocked {
 public:
  AsynchronousSignalsBlocked() {
    sigset_t asynchronous;
    sigfillset(&asynchronous);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGSYS, SIGTRAP, SIGABRT})
      sigdelset(&asynchronous, fault);
    pthread_sigmask(SIG_SETMASK, &asynchronous, &before_);
  }
  ~AsynchronousSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AsynchronousSignalsBlocked(const AsynchronousSignalsBlocked&) = delete;
  AsynchronousSignalsBlocked& operator=(const AsynchronousSignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

}  // namespace tev::support
