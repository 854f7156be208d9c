#include "host/outputs/formats.h"

#include <algorithm>
#include <iterator>

namespace tev::host {
namespace {

#define TEV_ROW(name, make, kind, help) {name, make, FormatKind::kind, help},
constexpr OutputFormat kFormats[] = {TEV_OUTPUT_FORMATS(TEV_ROW)};
#undef TEV_ROW

}  // namespace

std::span<const OutputFormat> outputFormats() {
  return kFormats;
}

const OutputFormat* findOutputFormat(std::string_view name) {
  const auto* const found = std::ranges::find(kFormats, name, &OutputFormat::name);
  return found != std::end(kFormats) ? found : nullptr;
}

std::string outputFormatNames() {
  std::string names;
  for (const OutputFormat& format : kFormats) {
    if (&format != kFormats) names += &format + 1 == std::end(kFormats) ? " or " : ", ";
    names += format.name;
  }
  return names;
}

}  // namespace tev::host
