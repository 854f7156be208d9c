#include "host/session.h"

#include <stdlib.h>

#include <algorithm>
#include <new>
#include <string>

#include "host/errors.h"
#include "host/host_log.h"
#include "host/text.h"
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

// That the simulator's adapters are none of this machine's is no news to who asked for it.
bool saysThatAdaptersAreMissing(const std::string& line) {
  constexpr const char* kTexts[] = {"Failed to get HCA info", "Could not get port identifiers",
                                    "No network interface found for RDMA device "};
  return std::ranges::any_of(
      kTexts, [&](const char* text) { return line.find(text) != std::string::npos; });
}

std::string refusal(const Plugin& plugin, const PluginOptions& options) {
  const auto explanation = HostLog::instance().explainRefusal();
  std::string text = "the plug-in could not be set up";
  if (!explanation.reason.empty()) text += ": " + explanation.reason;
  if (explanation.reason.ends_with("stoull"))
    text += "\n  An option that is to be a number is none, or too large.";
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

Session::Session(const PluginOptions& options) : types_(tev_create_type_system()) {
  if (!types_) throw std::bad_alloc();
  HostLog& log = HostLog::instance();
  // Who asked for a level wants to see the lines as they come, even if the plug-in never returns.
  log.beginSetUp(options.log_level, !options.log_level_given);
  setUp(options);
  const bool expected = options.simulated && !options.log_level_given;
  log.endSetUp(
      [&](const std::string& line) { return !expected || !saysThatAdaptersAreMissing(line); });
  plugin_->shareLogger();
}

void Session::setUp(const PluginOptions& options) {
  if (!options.simulator_scenario.empty())
    setenv("VUNA_SIMULATOR_SCENARIO", options.simulator_scenario.c_str(), 1);
  const Dict dict = makeDict(options);
  plugin_.emplace(options.path);
  plugin_->shareLogger();
  provider_.emplace(*plugin_, dict.get());
  if (!*provider_) throw RunError(refusal(*plugin_, options));
  if (!provider_->initialize(types_.get())) throw RunError(refusal(*plugin_, options));
  tev_type_system_update_md5_hashes(types_.get());
  if (!provider_->start()) throw RunError(refusal(*plugin_, options));
}

}  // namespace tev::host
