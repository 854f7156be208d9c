#include "host/parquet/page_packer.h"

#include <zstd.h>

#include <new>

#include "host/support/errors.h"

namespace tev::host {

void PagePacker::Free::operator()(ZSTD_CCtx_s* compressor) const {
  ZSTD_freeCCtx(compressor);
}

PagePacker::PagePacker() : compressor_(ZSTD_createCCtx()) {
  if (!compressor_) throw std::bad_alloc();
}

PagePacker::~PagePacker() = default;

void PagePacker::pack(std::string_view bytes, std::string& packed) {
  constexpr int kLevel = 1;
  packed.resize(ZSTD_compressBound(bytes.size()));
  const std::size_t size = ZSTD_compressCCtx(compressor_.get(), packed.data(), packed.size(),
                                             bytes.data(), bytes.size(), kLevel);
  if (ZSTD_isError(size) != 0)
    throw RunError(std::string("cannot compress a page: ") + ZSTD_getErrorName(size));
  packed.resize(size);
}

}  // namespace tev::host
