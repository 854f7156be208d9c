#pragma once

#include <memory>
#include <string>
#include <string_view>

struct ZSTD_CCtx_s;

namespace tev::host {

// Compresses the pages of many columns.
class PagePacker {
 public:
  PagePacker();
  ~PagePacker();
  PagePacker(const PagePacker&) = delete;
  PagePacker& operator=(const PagePacker&) = delete;

  // Replaces `packed` by the compressed bytes. Throws RunError.
  void pack(std::string_view bytes, std::string& packed);

 private:
  struct Free {
    void operator()(ZSTD_CCtx_s* compressor) const;
  };
  std::unique_ptr<ZSTD_CCtx_s, Free> compressor_;
};

}  // namespace tev::host
