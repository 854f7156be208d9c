// Records the blocks of a run in capture files.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/capture/capture_file.h"
#include "host/capture/capture_options.h"
#include "host/capture/file_sync.h"
#include "host/outputs/output.h"

namespace tev::host {

// A new file begins when --rotate says so, and at the first update after SIGHUP.
class CaptureOutput final : public Output {
 public:
  // `head` describes the recording; its start is set when the recording begins. `schema` must
  // outlive this.
  CaptureOutput(CaptureOptions options, CaptureHead head, const SchemaView& schema);

  // Creates the first file.
  void begin() override;
  void blocks(Blocks blocks) override;
  void update(const RunStatus& status) override;
  void end(const RunStatus& status) override;
  void leave() override;

  // A line for the summary of the run. Empty before begin().
  std::string summary() const;

 private:
  std::string nextPath() const;
  void openNext();
  void tryToOpenNext();
  void closeFile();
  void finish();
  void closeChunk();
  void noteCounts(const RunStatus& status);
  void rotateIfDue();
  void sync();

  CaptureOptions options_;
  CaptureHead head_;
  const SchemaView& schema_;
  FileSync sync_;
  std::unique_ptr<CaptureFile> file_;
  std::string last_path_;
  std::chrono::steady_clock::time_point opened_;
  std::chrono::steady_clock::time_point next_try_;  // to create a file
  int hang_ups_ = 0;                                // that a file was begun for
  std::vector<std::uint8_t> pending_;               // blocks of the next chunk
  std::uint64_t first_usec_ = 0;                    // of these
  std::uint64_t last_usec_ = 0;
  std::vector<DeviceCounts> counts_;  // as last written
  std::uint64_t files_ = 0;           // begun
  std::uint64_t stored_bytes_ = 0;    // of complete files
  std::uint64_t event_bytes_ = 0;
};

// Both clocks now.
ClockPair readClocks();

}  // namespace tev::host
