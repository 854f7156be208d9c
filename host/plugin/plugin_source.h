#pragma once

#include <memory>
#include <optional>
#include <utility>

#include "host/events/event_source.h"
#include "host/plugin/fetcher.h"
#include "host/plugin/plugin_thread.h"
#include "host/plugin/read_watch.h"
#include "host/plugin/session.h"

namespace tev::host {

// The events that a plug-in samples now. A call into the plug-in that does not return does not
// block the calling thread for ever: every wait for it can be interrupted.
class PluginSource final : public EventSource {
 public:
  // Sets up the plug-in, which then samples. Throws RunError when the plug-in refuses, or a request
  // to stop comes while its set-up does not return, and UsageError when the buffer is too small.
  // Findings about the options are shown, or passed to `findings`.
  PluginSource(const PluginOptions& options, std::uint64_t buffer_bytes,
               SetUpFindings* findings = nullptr);
  ~PluginSource() override;

  std::string name() const override { return session_->provider().name(); }
  const SchemaView& schema() const override { return *schema_; }
  bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) override;
  bool stop(const std::function<bool()>& interrupted) override;
  void drain(const BlockConsumer& take, const std::function<bool()>& interrupted) override;
  std::optional<std::vector<DeviceCounts>> counts() const override {
    return session_->provider().deviceCounts();
  }
  std::string version() const { return session_->provider().version(); }
  std::string pendingReads() const override;

  // The devices that the SDK lists; empty when the plug-in does not describe them.
  std::vector<DeviceInfo> devices() const {
    return session_->provider().deviceInfos().value_or(std::vector<DeviceInfo>{});
  }

  // The options that the plug-in describes.
  const OptionTable& options() const { return session_->options(); }

  // Gives the schema away. Afterwards only close() and the destructor may be called.
  SchemaView takeSchema() { return std::move(*schema_); }

  // Stops and releases the plug-in, and waits for both. False when the user cut this wait short,
  // now or in stop(). Afterwards only the destructor may be called.
  bool close();

 private:
  void setUp(const PluginOptions& options, SetUpFindings* findings);

  PluginThread thread_;
  // What the calls use. It is never destroyed when a call does not return.
  std::unique_ptr<Session> session_;
  std::unique_ptr<Fetcher> fetcher_;
  std::optional<SchemaView> schema_;
  ReadWatch watch_;
  bool left_behind_ = false;  // a call has not returned, and nobody waits for it any more
};

}  // namespace tev::host
