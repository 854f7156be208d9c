// Writes a page: one file that carries everything it shows.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/plot/page_files.h"
#include "host/plot/page_model.h"
#include "host/support/whole_file.h"

namespace tev::host {

struct PageContents {
  const PageFiles& files;
  const std::string& title;
  const std::string& json;  // of pageJson()
  const std::vector<PageDevice>& devices;
  const Reduction& reduction;
};

// Finer levels are written as long as the page stays below `most_bytes`: those of the first devices
// first. Throws RunError, also when the coarsest level is too large, and when `interrupted` returns
// true.
void writePage(const PageContents& contents, std::uint64_t most_bytes, WholeFile& file,
               const std::function<bool()>& interrupted);

}  // namespace tev::host
