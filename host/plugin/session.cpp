#include "host/plugin/session.h"

#include <stdlib.h>

#include <new>
#include <string>
#include <vector>

#include "host/plugin/option_check.h"
#include "host/support/errors.h"
#include "host/support/log.h"
#include "host/support/text.h"
#include "tev/dict.h"

namespace tev::host {
namespace {

struct DeleteDict {
  void operator()(tev_custom_options* dict) const { tev_dict_delete(dict); }
};
using Dict = std::unique_ptr<tev_custom_options, DeleteDict>;

Dict makeDict(const PluginOptions& options) {
  Dict dict(tev_dict_create());
  for (const auto& [key, value] : options.options)
    if (!tev_dict_add(dict.get(), key.c_str(), value.c_str())) throw std::bad_alloc();
  return dict;
}

void report(const std::vector<OptionFinding>& warnings, SetUpFindings* findings) {
  for (const OptionFinding& one : warnings)
    if (findings)
      findings->warnings.push_back(one.text);
    else
      Log::instance().say("tev-host: " + one.text);
}

// Removes the findings that are not warnings from `findings`, and returns them as one text.
std::string takeRefused(std::vector<OptionFinding>& findings) {
  std::string text;
  for (const OptionFinding& one : findings)
    if (one.refused) text += (text.empty() ? "" : "\n  ") + one.text;
  std::erase_if(findings, [](const OptionFinding& one) { return one.refused; });
  return text;
}

std::vector<std::string> namesOf(const std::vector<DeviceCounts>& devices) {
  std::vector<std::string> names;
  for (const DeviceCounts& one : devices) names.push_back(one.device);
  return names;
}

// The text of the error. `known_reason` takes precedence over the plug-in's log, unless it is
// empty.
std::string refusal(const Plugin& plugin, const PluginOptions& options,
                    const std::string& known_reason = {}) {
  const auto explanation = Log::instance().explainRefusal();
  const std::string& reason = known_reason.empty() ? explanation.reason : known_reason;
  std::string text = "the plug-in could not be set up";
  if (!reason.empty()) text += ": " + reason;
  if (!plugin.sharesLogger()) text += "\n  It keeps a log of its own, which may say why.";
  for (const std::string& line : explanation.unshown) text += "\n  " + line;
  text += "\n  The options were:";
  for (const auto& [key, value] : options.options) text += " " + asPrintable(key + "=" + value);
  if (options.usual_devices)
    text +=
        "\n  Without adapters: tev-host run --simulate. "
        "Another device SDK: --option multipath-vuna-lib-path=PATH.";
  return text;
}

}  // namespace

Session::Session(const PluginOptions& options, SetUpFindings* findings)
    : types_(tev_create_type_system()) {
  if (!types_) throw std::bad_alloc();
  Log& log = Log::instance();
  // With --log-level, the lines are shown at once, also when the set-up hangs.
  log.beginSetUp(options.log_level, !options.log_level_given);
  setUp(options, findings);
  // The simulator's adapters do not exist on this machine, so warnings about missing ones are
  // expected.
  log.endSetUp(!options.simulated || options.log_level_given);
  plugin_->shareLogger();
}

void Session::setUp(const PluginOptions& options, SetUpFindings* findings) {
  if (!options.simulator_scenario.empty())
    setenv("VUNA_SIMULATOR_SCENARIO", options.simulator_scenario.c_str(), 1);
  const Dict dict = makeDict(options);
  plugin_.emplace(options.path);
  plugin_->shareLogger();
  table_ = readOptionTable(plugin_->getOption());
  if (findings) findings->table = table_;
  auto found = checkOptions(options.options, table_);
  const std::string refused = takeRefused(found);
  report(found, findings);
  provider_.emplace(*plugin_, dict.get());
  if (!*provider_) throw RunError(refusal(*plugin_, options, refused));
  const bool initialized = provider_->initialize(types_.get());
  if (findings) findings->devices = provider_->deviceInfos();
  if (!initialized) throw RunError(refusal(*plugin_, options));
  tev_type_system_update_md5_hashes(types_.get());
  if (!provider_->start()) throw RunError(refusal(*plugin_, options));
  if (const auto devices = provider_->deviceCounts())
    report(checkDevices(options.options, table_, namesOf(*devices)), findings);
}

}  // namespace tev::host
