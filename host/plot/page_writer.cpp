#include "host/plot/page_writer.h"

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <map>
#include <string_view>

#include "host/plot/levels.h"
#include "host/plot/page_text.h"
#include "host/support/errors.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// The page may start no request, and may run only its own two scripts.
std::string policyOf(const PageFiles& files) {
  return fmt::format(
      "default-src 'none'; script-src '{}' '{}'; style-src '{}' '{}'; base-uri 'none'; "
      "form-action 'none'",
      policyHash(files.uplot_script), policyHash(files.script), policyHash(files.uplot_css),
      policyHash(files.css));
}

// The template in which each name in double braces is replaced, up to the levels and after them.
std::array<std::string, 2> filledTemplate(const PageContents& contents) {
  const PageFiles& files = contents.files;
  const std::map<std::string_view, std::string> values{
      {"policy", policyOf(files)},
      {"title", asHtml(asPrintable(contents.title))},
      {"uplot.css", std::string(files.uplot_css)},
      {"page.css", std::string(files.css)},
      {"uplot.licence", asHtml(files.uplot_licence)},
      {"uplot.js", std::string(files.uplot_script)},
      {"page.js", std::string(files.script)},
      {"recording", asScriptJson(contents.json)},
  };
  std::array<std::string, 2> parts;
  std::size_t part = 0;
  std::string_view rest = files.html;
  for (std::size_t at = rest.find("{{"); at != std::string_view::npos; at = rest.find("{{")) {
    const std::size_t end = rest.find("}}", at);
    const std::string_view name = rest.substr(at + 2, end - at - 2);
    parts[part] += rest.substr(0, at);
    rest.remove_prefix(end + 2);
    if (name == "levels")
      part = 1;
    else
      parts[part] += values.at(name);
  }
  parts[part] += rest;
  return parts;
}

// An element that the browser neither shows nor runs.
std::string levelElement(std::size_t device, std::size_t level,
                         const std::vector<std::uint8_t>& bytes) {
  return fmt::format("<script type=\"application/octet-stream\" id=\"d{}l{}\">{}</script>\n",
                     device, level, base64(bytes));
}

}  // namespace

void writePage(const PageContents& contents, std::uint64_t most_bytes, WholeFile& file,
               const std::function<bool()>& interrupted) {
  const auto parts = filledTemplate(contents);
  std::uint64_t size = parts[0].size() + parts[1].size();
  file.write(parts[0]);
  std::vector<bool> is_complete(contents.devices.size());
  std::size_t factor = 1;
  const std::size_t levels = levelsFor(contents.reduction.buckets());
  for (std::size_t i = 1; i < levels; ++i) factor *= kLevelFactor;
  for (std::size_t level = 0; level < levels; ++level, factor /= kLevelFactor) {
    for (std::size_t i = 0; i < contents.devices.size(); ++i) {
      if (is_complete[i]) continue;
      if (interrupted()) throw RunError("interrupted");
      const PageDevice& device = contents.devices[i];
      const std::string element = levelElement(
          i, level, packLevel(contents.reduction, device.name, device.packed(), factor));
      is_complete[i] = size + element.size() > most_bytes;
      if (is_complete[i] && level == 0)
        throw RunError(
            fmt::format("the page needs more than {}B even without details: choose a "
                        "larger --page-size, or fewer devices or counters",
                        shortNumber(static_cast<double>(most_bytes))));
      if (is_complete[i]) continue;
      size += element.size();
      file.write(element);
    }
  }
  file.write(parts[1]);
}

}  // namespace tev::host
