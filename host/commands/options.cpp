#include "host/commands/options.h"

#include <fmt/format.h>

#include <iterator>

#include "host/outputs/output_file.h"
#include "host/plugin/option_table.h"
#include "host/plugin/plugin.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// "1000 milliseconds"; empty without a default.
std::string defaultText(const OptionInfo& option, const char* quote) {
  if (option.default_value.empty()) return "";
  return quote + option.default_value + quote + (option.unit.empty() ? "" : " " + option.unit);
}

void appendLine(std::string& out, const char* heading, const std::string& text) {
  if (!text.empty()) fmt::format_to(std::back_inserter(out), "  {}{}\n", heading, text);
}

std::string forPeople(const OptionTable& table) {
  std::string out;
  for (const OptionInfo& option : table) {
    out += asPrintable(option.key) + '\n';
    appendLine(out, "", asPrintable(option.meaning));
    appendLine(out, "default: ", asPrintable(defaultText(option, "")));
    appendLine(out, "values:  ", asPrintable(option.range));
  }
  return out;
}

std::string asMarkdown(const OptionTable& table) {
  std::string out = "| key | default | meaning | values |\n|---|---|---|---|\n";
  const auto cell = [](const std::string& text) { return text.empty() ? " |" : " " + text + " |"; };
  for (const OptionInfo& option : table)
    out += "|" + cell("`" + option.key + "`") + cell(defaultText(option, "`")) +
           cell(option.meaning) + cell(option.range) + "\n";
  return out;
}

}  // namespace

int showOptions(const std::string& plugin_path, bool markdown) {
  const OptionTable table = readOptionTable(Plugin(plugin_path).getOption());
  if (table.empty()) throw RunError(asPrintable(plugin_path) + " describes no options");
  OutputFile output("");
  output.buffer() = markdown ? asMarkdown(table) : forPeople(table);
  try {
    output.close();
  } catch (const ClosedPipe&) {  // the reader closed the pipe, which is not an error
  }
  return kExitFine;
}

}  // namespace tev::host
