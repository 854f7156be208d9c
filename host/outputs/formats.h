// The table of output formats.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/figures/figures.h"
#include "host/outputs/output.h"
#include "host/outputs/output_file.h"

// Each row: name, factory function, kind, help text. A new format needs a row here and a file with
// its factory function.
#define TEV_OUTPUT_FORMATS(FORMAT)                                                        \
  FORMAT("table", makeTable, display,                                                     \
         "values and rates per device, redrawn in place on a terminal")                   \
  FORMAT("jsonl", makeJsonl, records, "one JSON object per line and event")               \
  FORMAT("csv", makeCsv, records, "comma-separated values with one header line")          \
  FORMAT("parquet", makeParquet, folder,                                                  \
         "with decode: a table per type of event, in the folder --output")                \
  FORMAT("trace", makeTraceJson, figures, "trace JSON: counter tracks for trace viewers") \
  FORMAT("none", makeNone, nothing, "no text, for example beside --capture")

namespace tev::host {

// The objects that an output uses. They must outlive it.
struct OutputSetup {
  const Projection& projection;
  const Figures& figures;                    // of the projection
  OutputFile& file;                          // of a format that is not a folder
  std::string folder;                        // path of the folder
  bool rates = false;                        // adds derived figures to each event
  std::optional<std::uint64_t> window_usec;  // replaces the events by windows of this length
};

enum class FormatKind {
  display,  // for people
  records,  // text for programs; derived figures are possible
  figures,  // text for programs, with derived figures in any case
  folder,   // several files, complete only at the end
  nothing,
};

struct OutputFormat {
  std::string_view name;
  std::unique_ptr<Output> (*make)(const OutputSetup&);
  FormatKind kind;
  std::string_view help;
};

std::span<const OutputFormat> outputFormats();

// Null when there is no such format.
const OutputFormat* findOutputFormat(std::string_view name);

// "table, jsonl, csv, parquet, trace or none".
std::string outputFormatNames();

#define TEV_DECLARE(name, make, kind, help) std::unique_ptr<Output> make(const OutputSetup& setup);
TEV_OUTPUT_FORMATS(TEV_DECLARE)
#undef TEV_DECLARE

}  // namespace tev::host
