#include "packaging/describe/pages.h"

#include <fmt/format.h>

#include <cctype>
#include <string_view>
#include <utility>

#include "host/cli/help_text.h"
#include "packaging/describe/roff.h"

namespace tev::describe {
namespace {

constexpr char kManual[] = "Telemetry of network adapters";

// Pages about what options and operands name.
constexpr std::pair<const char*, const char*> kRelated[] = {
    {"--option", "tev-multipath-options(7)"},
    {"--capture", "tev-capture(5)"},
    {"FILE", "tev-capture(5)"},
    {"--cset", "tev-counter-set(5)"},
    {"--fset", "tev-field-set(5)"},
    {"--filter", "tev-filter(5)"},
    {"--simulate", "tev-scenario(5)"},
};

std::string title(const std::string& page, int section, const std::string& date) {
  return fmt::format(".TH {} {} \"{}\" \"tev {}\" \"{}\"\n", roff(page), section, date, TEV_VERSION,
                     kManual);
}

std::string name(const std::string& page, std::string summary) {
  summary[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(summary[0])));
  return fmt::format(".SH NAME\n{} \\- {}\n", roff(page), roff(summary));
}

// "tev-filter(5)" as the name of a page.
std::string reference(std::string_view page) {
  const std::size_t section = page.find('(');
  return fmt::format(".BR {} {}", roff(page.substr(0, section)), page.substr(section));
}

// A section of the text that was written by hand, with its heading. Empty when it has none.
std::string section(const std::string& text, const std::string& heading) {
  const std::size_t start = text.find(".SH " + heading + "\n");
  if (start == std::string::npos) return "";
  return text.substr(start, text.find(".SH ", start + 1) - start);
}

// All sections but the description.
std::string furtherSections(const std::string& text) {
  std::string out = text;
  const std::string description = section(text, "DESCRIPTION");
  if (!description.empty()) out.erase(out.find(description), description.size());
  return out;
}

std::string description(const CommandText& command, const PageFrame& frame) {
  const std::string written = section(frame.prose, "DESCRIPTION");
  return written.empty() ? ".SH DESCRIPTION\n" + prose(command.summary) + ".\n" : written;
}

std::string optionEntry(const OptionText& option) {
  std::string head = bold(option.name);
  if (!option.short_name.empty()) head = bold(option.short_name) + ", " + head;
  if (option.takesOptionalValue())
    head += fmt::format("[={}]", italic(option.value.substr(2, option.value.size() - 3)));
  else if (!option.value.empty())
    head += " " + italic(option.value);
  if (option.is_operand && option.is_repeated) head += " ...";
  std::string meaning;
  std::string_view rest = option.meaning;
  while (true) {
    const std::size_t end = rest.find('\n');
    meaning += prose(rest.substr(0, end)) + ".\n";
    if (end == std::string_view::npos) break;
    rest.remove_prefix(end + 1);
    meaning += ".br\n";
  }
  return fmt::format(".TP\n{}\n{}", head, meaning);
}

std::string optionSection(const CommandText& command) {
  std::string out = ".SH OPTIONS\n";
  for (const OptionText& option : command.options) out += optionEntry(option);
  return out;
}

// All of them, or those of one command.
std::string exampleSection(const std::string& command) {
  std::string out;
  for (const auto& example : tev::host::examples())
    if (std::string_view(example.line).starts_with(command))
      out += fmt::format(".TP\n{}\n{}.\n", bold(std::string("tev-host ") + example.line),
                         prose(example.meaning));
  return out.empty() ? "" : ".SH EXAMPLES\n" + out;
}

std::string exitSection(const std::string& command) {
  std::string out = ".SH EXIT STATUS\n";
  for (const auto& one : tev::host::exitCodes(command))
    out += fmt::format(".TP\n.B {}\n{}.\n", one.code, prose(one.meaning));
  return out;
}

std::string synopsis(const CommandText& command) {
  std::string out =
      fmt::format(".SH SYNOPSIS\n{} [{}]...", bold("tev-host " + command.name), italic("OPTION"));
  for (const OptionText& option : command.options)
    if (option.is_operand)
      out += option.is_required ? " " + italic(option.name) + "..."
                                : " [" + italic(option.name) + "...]";
  return out + "\n";
}

}  // namespace

std::string programPage(const ProgramText& text, const PageFrame& frame) {
  const CommandText& program = text.program;
  std::string out = title("TEV-HOST", 1, frame.date) +
                    name("tev-host", "host for telemetry plug-ins of network adapters") +
                    ".SH SYNOPSIS\n" + bold("tev-host") + " " + italic("COMMAND") + " [" +
                    italic("OPTION") + "]...\n.br\n" + bold("tev-host") + " [" + bold("--help") +
                    "|" + bold("--version") + "]\n" + description(program, frame) +
                    ".SH COMMANDS\n";
  for (const CommandText& command : text.commands)
    out += fmt::format(".TP\n{}\n{}.\n", reference("tev-host-" + command.name + "(1)"),
                       prose(command.summary));
  out += optionSection(program) + furtherSections(frame.prose) + exampleSection("") +
         exitSection("") + ".SH SEE ALSO\n";
  for (const CommandText& command : text.commands)
    out += reference("tev-host-" + command.name + "(1)") + ",\n";
  for (const char* const page : {"tev-multipath-options(7)", "tev-capture(5)", "tev-counter-set(5)",
                                 "tev-field-set(5)", "tev-filter(5)"})
    out += reference(page) + ",\n";
  return out + reference("tev-scenario(5)") + "\n";
}

std::string commandPage(const CommandText& command, const PageFrame& frame) {
  const std::string page = "tev-host-" + command.name;
  std::string upper = page;
  for (char& one : upper) one = static_cast<char>(std::toupper(static_cast<unsigned char>(one)));
  std::string out = title(upper, 1, frame.date) + name(page, command.summary) + synopsis(command);
  out += description(command, frame) + optionSection(command) + furtherSections(frame.prose) +
         exampleSection(command.name) + exitSection(command.name) + ".SH SEE ALSO\n" +
         reference("tev-host(1)");
  std::string seen;
  for (const auto& [option, related] : kRelated) {
    if (!command.option(option) || seen.find(related) != std::string::npos) continue;
    seen += related;
    out += ",\n" + reference(related);
  }
  return out + "\n";
}

std::string optionsPage(const tev::host::OptionTable& options, const PageFrame& frame) {
  std::string out = title("TEV-MULTIPATH-OPTIONS", 7, frame.date) +
                    name("tev-multipath-options", "options of the multipath telemetry plug-in") +
                    ".SH SYNOPSIS\n" + bold("tev-host run --option") + " " + italic("KEY") + "=" +
                    italic("VALUE") + " ...\n" + section(frame.prose, "DESCRIPTION") +
                    ".SH OPTIONS\n";
  for (const auto& option : options) {
    out += ".TP\n" + bold(option.key) + "\n" + prose(option.meaning) + ".\n";
    if (!option.default_value.empty())
      out += fmt::format(".br\nDefault: {}{}{}.\n", roff(option.default_value),
                         option.unit.empty() ? "" : " ", roff(option.unit));
    if (!option.range.empty()) out += fmt::format(".br\nValues: {}.\n", prose(option.range));
  }
  return out + furtherSections(frame.prose) + ".SH SEE ALSO\n" + reference("tev-host-run(1)") +
         ",\n" + reference("tev-host-options(1)") + "\n";
}

}  // namespace tev::describe
