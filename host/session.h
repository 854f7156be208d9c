// A plug-in that has been set up, and what it was set up with.
#pragma once

#include <memory>
#include <optional>

#include "host/plugin.h"
#include "host/run_options.h"
#include "host/schema_view.h"

namespace tev::host {

// From the options to a provider that samples. The order of calls is the documented one:
// dictionary, type system, load, logger, construct, initialize, schema identities, start.
class Session {
 public:
  // Throws RunError, with the plug-in's own log lines about it, when something refuses.
  explicit Session(const PluginOptions& options);

  Provider& provider() { return *provider_; }
  tev_type_system_t* types() { return types_.get(); }

 private:
  struct Destroy {
    void operator()(tev_type_system_t* types) const { tev_destroy_type_system(types); }
  };

  void setUp(const PluginOptions& options);

  // In this order: the provider goes before the types that it registered.
  std::optional<Plugin> plugin_;
  std::unique_ptr<tev_type_system_t, Destroy> types_;
  std::optional<Provider> provider_;
};

}  // namespace tev::host
