// Replaces the functions of the system that change the names of files, or force files out.
#include "tests/host/fleet/file_faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>

namespace {

// Whether the operation may be carried out.
bool mayGoOn() {
  using Faults = tev::test::FileFaults;
  ++Faults::done;
  if (Faults::until_kill > 0 && --Faults::until_kill == 0) kill(getpid(), SIGKILL);
  if (Faults::until_failure > 0 && --Faults::until_failure == 0) {
    errno = ENOSPC;
    return false;
  }
  return true;
}

template <class... Arguments>
int call(long number, Arguments... arguments) {
  return mayGoOn() ? static_cast<int>(syscall(number, arguments...)) : -1;
}

int forceOut(long number, int descriptor) {
  if (tev::test::FileFaults::forces_out) return call(number, descriptor);
  return mayGoOn() ? 0 : -1;
}

}  // namespace

extern "C" {
int rename(const char* from, const char* to) noexcept {
  return call(SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}
int link(const char* from, const char* to) noexcept {
  return call(SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0);
}
int mkdir(const char* path, mode_t mode) noexcept {
  return call(SYS_mkdirat, AT_FDCWD, path, mode);
}
int fsync(int descriptor) {
  return forceOut(SYS_fsync, descriptor);
}
int fdatasync(int descriptor) {
  return forceOut(SYS_fdatasync, descriptor);
}
}
