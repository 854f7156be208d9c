#include "collector/sdk_log.h"

#include <atomic>
#include <cstdio>
#include <optional>
#include <string_view>

#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

constexpr char kFunction[] = "setSDKLogs";  // in messages

std::optional<std::uint32_t> levelNumber(std::string_view word) {
  for (const auto& level : kSdkLogLevels)
    if (level.word == word) return level.number;
  return std::nullopt;
}

// One backend per process, created by the first collector. It exists until the process ends.
std::atomic<bool> sdk_logger_set{false};

}  // namespace

void routeSdkLog(const Api& api, const std::string& level) {
  const auto number = levelNumber(level);
  if (!number) {
    TEV_LOG_WARNING("[multipath] [%s] Invalid SDK logs level: %s", kFunction, level.c_str());
    return;
  }
  // Set before the backend is created, so that a later collector does not retry a creation that
  // failed.
  if (sdk_logger_set.exchange(true)) {
    TEV_LOG_DEBUG("[multipath] [%s] SDK logger already set", kFunction);
    return;
  }
  vuna_log_backend* backend = nullptr;
  const auto status = api.vuna_log_backend_create_with_file_sdk(stderr, &backend);
  if (status != kVunaSuccess || !backend) {
    TEV_LOG_WARNING("[multipath] [%s] Could not create SDK logs: %s", kFunction,
                    api.errorName(status));
    return;
  }
  if (const auto refused = api.vuna_log_backend_set_sdk_level(backend, *number)) {
    TEV_LOG_WARNING("[multipath] [%s] Could not set SDK logs level '%s': %s", kFunction,
                    level.c_str(), api.errorName(refused));
  }
}

}  // namespace tev::events::multipath
