#include "host/plugin/fetcher.h"

#include <fmt/format.h>

#include <cstdlib>
#include <utility>

#include "host/support/errors.h"

namespace tev::host {
namespace {

constexpr int kMaxFailures = 3;
constexpr int kMaxBatches = 16;  // after stop; a plug-in with two buffers delivers at most two

std::uint64_t bytesNeeded(const tev_type_system_t* types) {
  return std::uint64_t{tev_type_system_get_max_event_type_size(types)} +
         TEV_EVENT_BLOCK_HEADER_SIZE;
}

std::string tooSmall(std::uint64_t bytes, std::uint64_t needed) {
  return fmt::format("--buffer-size {}: too small for one event; at least {} bytes are needed",
                     bytes, needed);
}

}  // namespace

Fetcher::Fetcher(Provider& provider, tev_type_system_t* types, std::uint64_t buffer_bytes,
                 PluginThread& thread)
    : provider_(provider),
      needed_bytes_(bytesNeeded(types)),
      buffer_(static_cast<std::uint8_t*>(std::malloc(buffer_bytes))),
      serializer_{types, buffer_.get(), buffer_bytes, 0},
      thread_(thread) {
  if (buffer_bytes < needed_bytes_) throw UsageError(tooSmall(buffer_bytes, needed_bytes_));
  if (!buffer_)
    throw RunError(fmt::format("there is no memory for a buffer of {} bytes", buffer_bytes));
}

std::optional<Fetcher::Outcome> Fetcher::progress(const BlockConsumer& take,
                                                  const std::function<bool()>& interrupted) {
  if (!std::exchange(is_called_, true)) {
    serializer_.used = 0;
    thread_.start([this] { result_ = provider_.progress(&serializer_); });
  }
  if (!thread_.wait(interrupted)) return std::nullopt;
  is_called_ = false;
  const int result = result_;
  if (serializer_.used > serializer_.capacity)
    throw RunError(fmt::format("the plug-in overran the serializer: {} bytes of {}",
                               serializer_.used, serializer_.capacity));
  if (result == TEV_PROGRESS_FULL && serializer_.used == 0)
    throw RunError(tooSmall(serializer_.capacity, needed_bytes_));

  if (result == TEV_PROGRESS_DONE || result == TEV_PROGRESS_FULL)
    failures_ = 0;
  else if (++failures_ >= kMaxFailures)
    throw RunError(fmt::format("the plug-in failed to deliver, {} times in a row", failures_));

  // A failed call may have written blocks before the failure. These blocks are complete.
  take({serializer_.buffer, serializer_.used});
  return Outcome{result, serializer_.used > 0};
}

bool Fetcher::round(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  while (true) {
    const auto outcome = progress(take, interrupted);
    if (!outcome) return false;
    if (outcome->result != TEV_PROGRESS_FULL || interrupted()) return true;
  }
}

bool Fetcher::drain(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  for (int batches = 0; batches < kMaxBatches && !interrupted();) {
    const auto outcome = progress(take, interrupted);
    if (!outcome) return false;
    if (outcome->result != TEV_PROGRESS_DONE) continue;
    if (!outcome->wrote) return true;
    ++batches;
  }
  return false;
}

}  // namespace tev::host
