#include "host/parquet/page_packer.h"

#include <zstd.h>

#include <algorithm>
#include <new>
#include <string>

#include "host/support/errors.h"

namespace tev::host {

void PagePacker::Free::operator()(ZSTD_CCtx_s* compressor) const {
  ZSTD_freeCCtx(compressor);
}

PagePacker::PagePacker() : compressor_(ZSTD_createCCtx()) {
  if (!compressor_) throw std::bad_alloc();
}

PagePacker::~PagePacker() = default;

std::string_view PagePacker::pack(std::string_view bytes) {
  constexpr int kLevel = 1;
  packed_.resize(std::max(packed_.size(), ZSTD_compressBound(bytes.size())));
  const std::size_t size = ZSTD_compressCCtx(compressor_.get(), packed_.data(), packed_.size(),
                                             bytes.data(), bytes.size(), kLevel);
  if (ZSTD_isError(size) != 0)
    throw RunError(std::string("cannot compress a page: ") + ZSTD_getErrorName(size));
  return {packed_.data(), size};
}

}  // namespace tev::host
