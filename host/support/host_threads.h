// The threads of the host. All others of the process belong to the plug-in.
#pragma once

#include <sys/types.h>

#include <set>
#include <string>
#include <string_view>

namespace tev::host {

// Notes threads by the kernel's id. To be called by any thread. The main thread need not be noted.
void addHostThread(pid_t thread);
void removeHostThread(pid_t thread);
std::set<pid_t> hostThreads();

// The same for the threads of a library, whose names begin with this text.
void addHostThreadNames(const std::string& begin);
bool isHostThreadName(std::string_view name);

// Notes the calling thread until the end of the scope.
class HostThread {
 public:
  HostThread();
  ~HostThread();
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;
};

}  // namespace tev::host
