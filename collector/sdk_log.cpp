// Routes the SDK's own diagnostics to standard error.

#include <atomic>
#include <cstdio>
#include <optional>
#include <string_view>

#include "collector/collector.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

struct LevelWord {
  std::string_view word;
  std::uint32_t number;
};

constexpr LevelWord kLevelWords[] = {
    {"disable", 10}, {"crit", 20},  {"error", 30}, {"warning", 40},
    {"info", 50},    {"debug", 60}, {"trace", 70},
};

std::optional<std::uint32_t> levelNumber(std::string_view word) {
  for (const auto& level : kLevelWords)
    if (level.word == word) return level.number;
  return std::nullopt;
}

// One backend per process, whichever collector comes first; it lives as long as the process.
std::atomic<bool> sdk_logger_set{false};

}  // namespace

void Collector::setSDKLogs(const std::string& level) {
  const auto number = levelNumber(level);
  if (!number) {
    TEV_LOG_WARNING("[multipath] [%s] Invalid SDK logs level: %s", __func__, level.c_str());
    return;
  }
  // Set before the backend exists: a creation that fails is not tried again by a later collector.
  if (sdk_logger_set.exchange(true)) {
    TEV_LOG_DEBUG("[multipath] [%s] SDK logger already set", __func__);
    return;
  }
  vuna_log_backend* backend = nullptr;
  const auto status = api_.vuna_log_backend_create_with_file_sdk(stderr, &backend);
  if (status != kVunaSuccess || !backend) {
    TEV_LOG_WARNING("[multipath] [%s] Could not create SDK logs: %s", __func__,
                    api_.errorName(status));
    return;
  }
  if (const auto refused = api_.vuna_log_backend_set_sdk_level(backend, *number)) {
    TEV_LOG_WARNING("[multipath] [%s] Could not set SDK logs level '%s': %s", __func__,
                    level.c_str(), api_.errorName(refused));
  }
}

}  // namespace tev::events::multipath
