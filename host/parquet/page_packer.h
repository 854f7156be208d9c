#pragma once

#include <memory>
#include <string_view>
#include <vector>

struct ZSTD_CCtx_s;

namespace tev::host {

// Compresses the pages of many columns.
class PagePacker {
 public:
  PagePacker();
  ~PagePacker();
  PagePacker(const PagePacker&) = delete;
  PagePacker& operator=(const PagePacker&) = delete;

  // The compressed bytes, which are valid until the next call. Throws RunError.
  std::string_view pack(std::string_view bytes);

 private:
  struct Free {
    void operator()(ZSTD_CCtx_s* compressor) const;
  };
  std::unique_ptr<ZSTD_CCtx_s, Free> compressor_;
  std::vector<char> packed_;
};

}  // namespace tev::host
