#include "host/cli/version_text.h"

#include "host/kafka/settings.h"
#include "host/plot/page_files.h"

namespace tev::host {
namespace {

// The parts that are built when what they need is found.
struct Feature {
  const char* name;
  bool is_built;
};

std::string namesOf(const Feature* begin, const Feature* end, bool are_built) {
  std::string names;
  for (const Feature* one = begin; one != end; ++one)
    if (one->is_built == are_built) names += (names.empty() ? "" : ", ") + std::string(one->name);
  return names;
}

}  // namespace

std::string versionText() {
  const Feature features[] = {
      {"plot", pageFiles() != nullptr},
      {"prometheus", TEV_WITH_PROMETHEUS != 0},
      {"kafka", kHasKafka},
  };
  std::string text = "tev-host " TEV_VERSION;
  for (const bool are_built : {true, false})
    if (const std::string names = namesOf(std::begin(features), std::end(features), are_built);
        !names.empty())
      text += (are_built ? "\nwith: " : "\nwithout: ") + names;
  return text;
}

}  // namespace tev::host
