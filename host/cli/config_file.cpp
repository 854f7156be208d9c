#include "host/cli/config_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t first = std::min(text.find_first_not_of(kBlanks), text.size());
  text.remove_prefix(first);
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Takes the values of a line from its text.
class ValueReader {
 public:
  explicit ValueReader(std::string_view text) : rest_(trimmed(text)) {}

  // Throws UsageError with the reason.
  std::vector<std::string> values() {
    std::vector<std::string> all;
    if (!takes('[')) {
      all.push_back(value());
    } else {
      while (!takes(']')) {
        all.push_back(value());
        if (!takes(',') && !rest_.starts_with(']')) throw UsageError("the list has no end");
      }
      if (all.empty()) throw UsageError("a value is needed");
    }
    if (!rest_.empty() && rest_[0] != '#')
      throw UsageError("a value with blanks, commas or brackets needs quotes");
    return all;
  }

 private:
  // Takes this character and the blanks behind it.
  bool takes(char wanted) {
    if (!rest_.starts_with(wanted)) return false;
    rest_ = trimmed(rest_.substr(1));
    return true;
  }

  std::string value() {
    if (rest_.starts_with('"') || rest_.starts_with('\'')) return quoted(rest_[0]);
    const std::size_t length = std::min(rest_.find_first_of(" \t,[]#\"'"), rest_.size());
    if (length == 0) throw UsageError("a value is needed");
    std::string text(rest_.substr(0, length));
    rest_ = trimmed(rest_.substr(length));
    return text;
  }

  // Between double quotes, a backslash is written before a quote and before a backslash.
  std::string quoted(char quote) {
    std::string text;
    for (std::size_t i = 1; i < rest_.size(); ++i) {
      if (rest_[i] == quote) {
        rest_ = trimmed(rest_.substr(i + 1));
        return text;
      }
      if (quote == '"' && rest_[i] == '\\' && ++i == rest_.size()) break;
      text += rest_[i];
    }
    throw UsageError("the text has no closing quote");
  }

  std::string_view rest_;
};

ConfigEntry entryOf(std::string_view text, std::size_t line) {
  const std::size_t equals = text.find('=');
  if (text.starts_with('[')) throw UsageError("the file has no sections");
  if (equals == std::string_view::npos) throw UsageError("KEY = VALUE is needed");
  const std::string key(trimmed(text.substr(0, equals)));
  if (key.empty()) throw UsageError("a key is needed before =");
  try {
    return {line, key, ValueReader(text.substr(equals + 1)).values()};
  } catch (const UsageError& error) {
    throw UsageError(fmt::format("{}: {}", asPrintable(key), error.what()));
  }
}

}  // namespace

void refuseLine(const std::string& path, std::size_t line, const std::string& reason) {
  throw UsageError(fmt::format("{}:{}: {}", asPrintable(path), line, reason));
}

std::vector<ConfigEntry> readConfigFile(const std::string& path) {
  const auto refuse_file = [&](const std::string& reason) {
    throw UsageError(fmt::format("cannot read {}: {}", asPrintable(path), reason));
  };
  std::error_code error;
  const auto kind = std::filesystem::status(path, error).type();
  if (error) refuse_file(error.message());
  if (kind != std::filesystem::file_type::regular) refuse_file("it is not a file");
  std::ifstream file(path);
  if (!file) refuse_file(std::strerror(errno));
  std::vector<ConfigEntry> entries;
  std::size_t number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    const std::string_view text = trimmed(line);
    if (text.empty() || text[0] == '#') continue;
    try {
      entries.push_back(entryOf(text, number));
    } catch (const UsageError& reason) {
      refuseLine(path, number, reason.what());
    }
  }
  return entries;
}

}  // namespace tev::host
