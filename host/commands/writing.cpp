#include "host/commands/writing.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <exception>
#include <optional>
#include <vector>

#include "host/support/errors.h"

namespace tev::host {

std::optional<std::uint64_t> windowUsec(const RunOptions& options) {
  if (!options.window) return std::nullopt;
  return static_cast<std::uint64_t>(std::chrono::microseconds(*options.window).count());
}

const OutputFormat& formatFor(const RunOptions& options, const OutputFile& file) {
  const bool derived = options.rates || options.window;
  const OutputFormat* format = options.format;
  if (!format) format = findOutputFormat(file.isTerminal() && !derived ? "table" : "jsonl");
  const bool sends_windows = !options.rates && !options.kafka.brokers.empty();
  if (derived && format->kind != FormatKind::records && !sends_windows)
    throw UsageError(
        fmt::format("{} needs --format jsonl or csv", options.rates ? "--rates" : "--window"));
  return *format;
}

std::vector<std::string> inputsOf(const RunOptions& options) {
  std::vector<std::string> inputs;
  for (const auto& set : {options.selection.field_set, options.selection.counter_set})
    if (set) inputs.push_back(*set);
  if (!options.plugin.simulator_scenario.empty())
    inputs.push_back(options.plugin.simulator_scenario);
  return inputs;
}

std::string textPath(const RunOptions& options) {
  const bool is_folder = options.format && options.format->kind == FormatKind::folder;
  return is_folder ? "" : options.output;
}

std::unique_ptr<Output> makeWriter(const RunOptions& options, const Projection& projection,
                                   const Figures& figures, OutputFile& file) {
  return formatFor(options, file)
      .make({projection, figures, file, options.output, options.rates, windowUsec(options)});
}

std::uint64_t silenceUsec(std::uint64_t interval_usec, std::chrono::milliseconds update) {
  constexpr std::uint64_t kIntervals = 5;
  const auto update_usec = std::chrono::microseconds(update).count();
  return kIntervals * (interval_usec + static_cast<std::uint64_t>(update_usec));
}

void expectDevicesOf(const Delivery& delivery, const DeviceFilter& filter) {
  std::vector<std::string> names;
  for (const Delivery::SeriesCount& one : delivery.series())
    if (std::ranges::find(names, one.series->device) == names.end())
      names.push_back(one.series->device);
  filter.expectOneOf(names);
}

void closeAfterFailure(OutputFile& file) {
  try {
    file.close();
  } catch (const std::exception&) {  // the run has failed already, and the summary counts the rest
  }
}

std::string missingText(const OutputFile& file) {
  if (file.missingBytes() == 0) return "";
  return fmt::format("  {} events ({} bytes of text) did not reach {}\n",
                     file.missingRecords().size(), file.missingBytes(), file.name());
}

}  // namespace tev::host
