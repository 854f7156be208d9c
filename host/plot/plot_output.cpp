#include "host/plot/plot_output.h"

#include <string>

namespace tev::host {
namespace {

constexpr std::size_t kMostEntries = 2000;       // of missing samples
constexpr std::uint64_t kGraceUsec = 2'000'000;  // for late samples of a window
constexpr std::uint64_t kBytesPerBucket = 2;     // in a page; a guess at the least

}  // namespace

PlotOutput::PlotOutput(const Projection& projection, const Figures& figures,
                       std::uint64_t most_bytes)
    : projection_(projection),
      figures_(figures),
      most_bytes_(most_bytes),
      reduction_(figures, static_cast<std::size_t>(most_bytes / kBytesPerBucket)),
      findings_(figures) {}

void PlotOutput::event(const Event& event, const Series& series) {
  reduction_.sample(event, series);
  findings_.sample(event, series);
}

void PlotOutput::update(const RunStatus& status) {
  if (status.now_usec > kGraceUsec) findings_.complete(status.now_usec - kGraceUsec);
  for (const MissingSamples& one : status.health->missing()) {
    reduction_.missing(one);
    if (missing_.entries.size() < kMostEntries)
      missing_.entries.push_back(one);
    else
      ++missing_.left_out;
  }
}

void PlotOutput::end(const RunStatus& status) {
  findings_.complete(UINT64_MAX);
  reduction_.finish();
  health_ = status.health->devices();
}

void PlotOutput::write(const PageFiles& files, const PageHead& head, WholeFile& file,
                       const std::function<bool()>& interrupted) const {
  const auto devices = pageDevices(reduction_, findings_, figures_, health_);
  const std::string json = pageJson(head, devices, reduction_, findings_, figures_, missing_);
  writePage({files, head.title, json, devices, reduction_}, most_bytes_, file, interrupted);
}

}  // namespace tev::host
