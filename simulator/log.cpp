#include "simulator/log.h"

#include <algorithm>
#include <cstdarg>

#include "simulator/common_library.h"

namespace simulator {
namespace {

const char* nameOf(LogLevel level) {
  switch (level) {
    case kLogCritical:
      return "crit";
    case kLogError:
      return "error";
    case kLogWarning:
      return "warning";
    case kLogInfo:
      return "info";
    case kLogDebug:
      return "debug";
    default:
      return "trace";
  }
}

}  // namespace

vuna_status Log::create(std::FILE* stream, vuna_log_backend** backend) {
  if (!stream || !backend) return kBadArgument;
  const std::scoped_lock lock(mutex_);
  backends_.push_back(std::make_unique<vuna_log_backend>(vuna_log_backend{stream, kLogWarning}));
  *backend = backends_.back().get();
  most_ = std::max<std::uint32_t>(most_, kLogWarning);
  return kVunaSuccess;
}

vuna_status Log::setLevel(vuna_log_backend* backend, std::uint32_t level) {
  if (level < kLogDisable || level > kLogTrace) return kBadArgument;
  const std::scoped_lock lock(mutex_);
  bool known = false;
  std::uint32_t most = kLogDisable;
  for (const auto& each : backends_) {
    if (each.get() == backend) {
      each->level = level;
      known = true;
    }
    most = std::max(most, each->level);
  }
  most_ = most;
  return known ? kVunaSuccess : kBadArgument;
}

void Log::line(LogLevel level, const char* format, ...) noexcept {
  if (!enabled(level)) return;
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);

  const std::scoped_lock lock(mutex_);
  for (const auto& backend : backends_)
    if (level <= backend->level)
      std::fprintf(backend->stream, "[vuna-sim] [%s] %s\n", nameOf(level), text);
}

}  // namespace simulator
