#pragma once

#include <memory>

#include "host/parquet/column_chunk.h"

namespace tev::host {

// Texts in UTF-8 up to the first NUL. Each different text is stored once, in a dictionary, unless
// there are too many.
std::unique_ptr<ColumnChunk> makeTextChunk(const RowField& field, PagePacker& packer);

}  // namespace tev::host
