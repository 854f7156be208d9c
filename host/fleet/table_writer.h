// Writes the events of a range as Parquet files.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "host/fleet/range.h"

namespace tev::host {

// Writes the tables of the range, in their order; `paths` are their files. The bytes follow from
// the range and the names alone. Throws RunError; some of the files may be there then.
void writeTables(const Range& range, const std::vector<RangeTable>& tables,
                 const std::vector<std::string>& paths, bool is_forced_out);

}  // namespace tev::host
