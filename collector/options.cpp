#include "collector/options.h"

#include <string_view>

#include "collector/sdk_log.h"

namespace tev::events::multipath {
namespace {

constexpr Option kOptions[] = {
    kLibraryPath,   kFallbackLibraryPath,  kDevices,         kSampleInterval, kUpdate,
    kMaxBufferSize, kClearSampledCounters, kSamplingThreads, kSdkLogLevel,
};

// Whether a text lists the words of the SDK's log levels, separated by ", ".
constexpr bool listsLogLevels(std::string_view text) {
  for (const auto& level : kSdkLogLevels) {
    if (!text.starts_with(level.word)) return false;
    text.remove_prefix(level.word.size());
    if (text.starts_with(", ")) text.remove_prefix(2);
  }
  return text.empty();
}
static_assert(listsLogLevels(kSdkLogLevel.range));

}  // namespace

std::span<const Option> options() {
  return kOptions;
}

}  // namespace tev::events::multipath
