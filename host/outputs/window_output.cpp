#include "host/outputs/window_output.h"

#include <string_view>

namespace tev::host {
namespace {

// The causes that the last update reported for the device: "buffer_full refused".
std::string causesOf(const std::string& device, const HealthWatch& health) {
  std::string causes;
  for (const MissingSamples& one : health.missing())
    if (one.device == device) causes += (causes.empty() ? "" : " ") + std::string(one.cause);
  return causes;
}

}  // namespace

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
                }}) {}

void WindowOutput::event(const Event& event, const Series& series) {
  windows_.sample(event, series);
}

void WindowOutput::update(const RunStatus& status) {
  windows_.update(status.now_usec);
  write(status);
  TextOutput::update(status);
}

void WindowOutput::end(const RunStatus& status) {
  windows_.end();
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
