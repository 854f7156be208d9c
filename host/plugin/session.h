#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/plugin/option_table.h"
#include "host/plugin/plugin.h"
#include "host/plugin/plugin_options.h"
#include "host/plugin/provider.h"

namespace tev::host {

// What the set-up finds, also when it fails.
struct SetUpFindings {
  OptionTable table;                               // the options that the plug-in describes
  std::vector<std::string> warnings;               // about the given options
  std::optional<std::vector<DeviceInfo>> devices;  // nothing: the plug-in does not describe them
};

// From the options to a provider that samples. The order of calls is the documented one:
// dictionary, type system, load, logger, construct, initialize, schema identities, start.
class Session {
 public:
  // Reports the findings about the options, or passes them to `findings`. Throws RunError, with the
  // plug-in's log lines, when the set-up fails.
  explicit Session(const PluginOptions& options, SetUpFindings* findings = nullptr);

  Provider& provider() { return *provider_; }
  const Provider& provider() const { return *provider_; }
  tev_type_system_t* types() { return types_.get(); }
  const OptionTable& options() const { return table_; }

 private:
  struct Destroy {
    void operator()(tev_type_system_t* types) const { tev_destroy_type_system(types); }
  };

  void setUp(const PluginOptions& options, SetUpFindings* findings);

  // The order of these members is such that the provider is released before its types.
  std::optional<Plugin> plugin_;
  OptionTable table_;
  std::unique_ptr<tev_type_system_t, Destroy> types_;
  std::optional<Provider> provider_;
};

}  // namespace tev::host
