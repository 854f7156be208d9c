#include "host/commands/known_options.h"

#include "tev/dict.h"

namespace tev::host {

const std::string* givenValue(const GivenOptions& given, const std::string& key) {
  const std::string* found = nullptr;
  for (const auto& [name, value] : given)
    if (name == key) found = &value;
  return found;
}

void setOption(PluginOptions& options, const char* key, const std::string& value) {
  options.options.emplace_back(key, value);
}

void withoutClearing(PluginOptions& options) {
  const std::string* const clear = givenValue(options.options, kClearKey);
  if (clear && tev_string_to_boolean(clear->c_str())) setOption(options, kClearKey, "false");
}

}  // namespace tev::host
