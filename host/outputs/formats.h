// The table of output formats.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/outputs/output.h"
#include "host/outputs/output_file.h"

// Each row: name, factory function, help text. A new format needs a row here and a file with its
// factory function.
#define TEV_OUTPUT_FORMATS(FORMAT)                                                          \
  FORMAT("table", makeTable, "values and rates per device, redrawn in place on a terminal") \
  FORMAT("jsonl", makeJsonl, "one JSON object per line and event")                          \
  FORMAT("csv", makeCsv, "comma-separated values with one header line")

namespace tev::host {

// The objects that an output uses. Both must outlive it.
struct OutputSetup {
  const Projection& projection;
  OutputFile& file;
};

struct OutputFormat {
  std::string_view name;
  std::unique_ptr<Output> (*make)(const OutputSetup&);
  std::string_view help;
};

std::span<const OutputFormat> outputFormats();

// Null when there is no such format.
const OutputFormat* findOutputFormat(std::string_view name);

// "table, jsonl or csv".
std::string outputFormatNames();

#define TEV_DECLARE(name, make, help) std::unique_ptr<Output> make(const OutputSetup& setup);
TEV_OUTPUT_FORMATS(TEV_DECLARE)
#undef TEV_DECLARE

}  // namespace tev::host
