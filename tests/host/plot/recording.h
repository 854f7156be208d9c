// A recording whose contents the tests of the plot know.
#pragma once

#include <cstdint>
#include <string>

#include "host/capture/capture_file.h"
#include "tests/host/sample_types.h"

namespace tev::test {

inline constexpr char kHostile[] = "</script><script>document.title=\"x\"</script><!--";
inline constexpr std::uint64_t kBeginUsec = 1'700'000'000'000'000;

inline std::uint32_t noise(std::uint32_t sample, std::uint32_t number) {
  const std::uint32_t mixed = (sample * 8 + number) * 2'654'435'761U;
  return (mixed ^ mixed >> 15) * 2'246'822'519U >> 8;
}

// Two adapters with four planes, a sample per millisecond. In plane 2 of the first one, sample
// `samples` / 3 of each field is far above the others. After two thirds, 50 samples are missing,
// and 10 samples later a counter begins anew.
inline void writeRecording(const std::string& path, std::uint32_t samples) {
  SampleTypes types;
  types.add("plane",
            {{"device", nullptr, "char", 0, 64},
             {"plane", nullptr, "uint32_t", 0, 1},
             {"tx_bytes", "transmitted bytes", "uint32_t", 0, 1},
             {"load", "<img src=x onerror=document.title='x'>", "uint32_t", 0, 1}},
            {"device", "plane"});
  host::CaptureHead head;
  head.schemas = {host::SchemaView::fromTypeSystem(*types).schemas()[0].text};
  head.source = kHostile;
  head.start = {kBeginUsec * 1000, 1};
  head.interval_usec = 1000;
  host::CaptureFile file(path, head);
  std::uint32_t totals[2][4] = {};
  Bytes blocks;
  constexpr std::uint32_t kUpdate = 1000;  // samples
  for (std::uint32_t i = 0; i < samples; ++i) {
    const std::uint64_t now = kBeginUsec + 1000 * std::uint64_t{i};
    const bool is_missing = i > samples / 3 * 2 && i <= samples / 3 * 2 + 50;
    for (std::uint32_t device = 0; device < 2 && !is_missing; ++device) {
      blocks.block(now, 0, 0, 4);
      for (std::uint32_t plane = 0; plane < 4; ++plane) {
        const bool is_spike = i == samples / 3 && device == 0 && plane == 2;
        std::uint32_t& total = totals[device][plane];
        total += is_spike ? 1'000'000 : 1000 + noise(i, plane) % 64;
        if (i == samples / 3 * 2 + 60 && device == 0 && plane == 1) total = 5;
        blocks.text(device == 0 ? "rdma0" : kHostile, 64).add(plane).add(total);
        blocks.add(is_spike ? 90'000U : 50 + noise(i, plane + 4) % 17);
      }
    }
    if ((i + 1) % kUpdate != 0 && i + 1 != samples) continue;
    file.writeEvents(blocks, now - 1000 * std::uint64_t{i % kUpdate}, now);
    file.writeCounts({{.device = "rdma0", .missed_by_overrun = i > samples / 3 * 2 ? 50U : 0U},
                      {.device = kHostile}},
                     now);
    file.writeClocks({now * 1000, 1});
    blocks.clear();
  }
  file.finish();
}

}  // namespace tev::test
