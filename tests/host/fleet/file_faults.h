// Faults of file operations: the process is killed before one of them, or one of them fails.
#pragma once

namespace tev::test {

struct FileFaults {
  static inline int until_kill = 0;  // operations; 0: never
  static inline int until_failure = 0;
  static inline int done = 0;            // operations so far
  static inline bool forces_out = true;  // otherwise nothing is forced out, which is faster
};

}  // namespace tev::test
