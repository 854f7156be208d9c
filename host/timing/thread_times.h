// The CPU time of the threads of this process.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <string>

namespace tev::host {

// In nanoseconds, by the thread's id, for all threads that exist.
std::map<pid_t, std::uint64_t> threadTimes();

// The same without the threads of the host.
std::map<pid_t, std::uint64_t> pluginThreadTimes();

// Empty when there is no such thread.
std::string threadName(pid_t thread);

}  // namespace tev::host
