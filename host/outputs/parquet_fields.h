#pragma once

#include <cstddef>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/events/schema_view.h"
#include "host/parquet/column_chunk.h"

namespace tev::host {

// The columns of events that begin at `offset` in the rows. The elements of an array are columns of
// their own; a text is one value. No column gets one of the names in `taken`, besides those that
// every event takes.
std::vector<RowField> parquetFields(const std::vector<Column>& columns, std::size_t offset,
                                    std::initializer_list<const char*> taken = {});

}  // namespace tev::host
