#pragma once

#include "host/events/event_source.h"
#include "host/plugin/fetcher.h"
#include "host/plugin/session.h"

namespace tev::host {

// The events that a plug-in samples now.
class PluginSource final : public EventSource {
 public:
  // Sets up the plug-in, which then samples. Throws RunError when the plug-in refuses, and
  // UsageError when the buffer is too small.
  PluginSource(const PluginOptions& options, std::uint64_t buffer_bytes);

  std::string name() const override { return session_.provider().name(); }
  const SchemaView& schema() const override { return schema_; }
  bool fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) override;
  void stop() override { session_.provider().stop(); }
  void drain(const BlockConsumer& take, const std::function<bool()>& interrupted) override;
  std::optional<std::vector<DeviceCounts>> counts() const override {
    return session_.provider().deviceCounts();
  }

  // The devices that the SDK lists; empty when the plug-in does not describe them.
  std::vector<DeviceInfo> devices() const {
    return session_.provider().deviceInfos().value_or(std::vector<DeviceInfo>{});
  }

  // The options that the plug-in describes.
  const OptionTable& options() const { return session_.options(); }

 private:
  Session session_;
  SchemaView schema_;
  Fetcher fetcher_;
};

}  // namespace tev::host
