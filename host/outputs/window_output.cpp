#include "host/outputs/window_output.h"

#include <algorithm>
#include <string_view>

namespace tev::host {
namespace {

// How long after its end a window stays open for late samples.
constexpr std::uint64_t kGraceUsec = 1'000'000;

// The causes that the last update reported for the device: "buffer_full refused".
std::string causesOf(const std::string& device, const HealthWatch& health) {
  std::string causes;
  for (const MissingSamples& one : health.missing())
    if (one.device == device) causes += (causes.empty() ? "" : " ") + std::string(one.cause);
  return causes;
}

}  // namespace

bool isPartial(const SeriesWindow& window, std::uint64_t interval_usec, bool is_last) {
  const std::uint64_t usual = interval_usec + interval_usec / 2;
  const SeriesFigures& series = *window.series;
  const bool is_first = series.first_usec >= window.begin_usec;
  return (is_first && series.first_usec - window.begin_usec > usual) ||
         (is_last && window.end_usec - series.last_usec > usual);
}

WindowOutput::WindowOutput(const OutputSetup& setup)
    : TextOutput(setup),
      figures_(setup.figures),
      windows_(setup.figures, *setup.window_usec,
               {[this](const SeriesWindow& window) {
                  pending_.push_back({window.series->series->device, {}});
                  append(pending_.back().text, window);
                },
                [this](const DeviceWindow& window) {
                  pending_.push_back({window.device, {}});
                  append(pending_.back().text, window);
                }}),
      length_usec_(*setup.window_usec) {}

void WindowOutput::event(const Event& event, const Series& series) {
  windows_.sample(event, series);
}

void WindowOutput::update(const RunStatus& status) {
  const std::uint64_t patience = length_usec_ + kGraceUsec;
  if (status.now_usec > patience) windows_.complete(status.now_usec - patience);
  write(status);
  TextOutput::update(status);
}

void WindowOutput::end(const RunStatus& status) {
  is_ending_ = true;
  windows_.complete(UINT64_MAX);
  write(status);
  TextOutput::end(status);
}

void WindowOutput::write(const RunStatus& status) {
  std::string& out = file_.buffer();
  for (const Pending& one : pending_) {
    for (const char character : one.text) {
      if (character == kCauses)
        out += causesOf(one.device, *status.health);
      else
        out += character;
    }
  }
  pending_.clear();
  append(out, status);
}

}  // namespace tev::host
