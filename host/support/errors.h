// Errors that end the program early. The text is one sentence for the user.
#pragma once

#include <stdexcept>

namespace tev::host {

enum ExitCode : int {
  kExitFine = 0,
  kExitFailed = 1,
  kExitUsage = 2,
  kExitMissing = 3,  // samples are missing, and the user does not allow it
};

// The command line is wrong.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The plug-in refused, a file cannot be used, or the run failed.
class RunError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace tev::host
