#pragma once

#include <memory>

#include "host/parquet/column_chunk.h"

namespace tev::host {

// Plain values.
std::unique_ptr<ColumnChunk> makeNumberChunk(const RowField& field, PagePacker& packer);

}  // namespace tev::host
