// The part of a command that writes events in the format that the user has chosen.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/commands/run_options.h"
#include "host/events/device_filter.h"
#include "host/outputs/delivery.h"
#include "host/outputs/output_file.h"

namespace tev::host {

// The chosen format; by default the table on a terminal. Throws UsageError when the format does not
// fit the other options.
const OutputFormat& formatFor(const RunOptions& options, const OutputFile& file);

// The length of the windows; nothing: events are written.
std::optional<std::uint64_t> windowUsec(const RunOptions& options);

// The files that the options name and that are read.
std::vector<std::string> inputsOf(const RunOptions& options);

// The path for the OutputFile: empty when the format writes files of its own.
std::string textPath(const RunOptions& options);

std::unique_ptr<Output> makeWriter(const RunOptions& options, const Projection& projection,
                                   const Figures& figures, OutputFile& file);

// The time without a sample after which a device is silent: some intervals. Samples arrive only at
// updates.
std::uint64_t silenceUsec(std::uint64_t interval_usec, std::chrono::milliseconds update);

// Throws UsageError, with the names of the devices of the events, when the filter passes none.
void expectDevicesOf(const Delivery& delivery, const DeviceFilter& filter);

// Writes what a run that failed has left in the buffer.
void closeAfterFailure(OutputFile& file);

// A line about events that did not reach the file; empty when there are none.
std::string missingText(const OutputFile& file);

}  // namespace tev::host
