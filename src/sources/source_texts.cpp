// Source arrays from a range ("2-4", "node[2-4]") and from a file.

#include <boost/filesystem/operations.hpp>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "src/sources/identity.h"
#include "src/support/guard.h"
#include "src/support/malloc_ptr.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tev/logger.h"
#include "tev/sources.h"

namespace {

using tev::support::Lines;
using tev::support::MallocPtr;

constexpr std::size_t kLongestLine = 1023;

struct DestroyArray {
  void operator()(tev_source_array_t* array) const noexcept { tev_destroy_source_array(array); }
};
using ArrayPtr = std::unique_ptr<tev_source_array_t, DestroyArray>;

// A source without a tag; `id` is truncated to fit.
bool append(tev_source_array_t& array, std::string_view id) {
  char text[TEV_SOURCE_ID_SIZE] = "";
  id.copy(text, sizeof text - 1);
  MallocPtr<tev_source_t> source(tev_create_source(text, ""));
  if (!tev_source_array_append(&array, source.get())) return false;
  static_cast<void>(source.release());  // owned by the array now
  return true;
}

// The sources' numbers, both ends included.
struct Range {
  std::optional<std::string_view> prefix;  // nothing: this machine's identity
  std::int32_t first;
  std::int32_t last;
};

// All of `text` is a decimal number that fits 32 bits.
std::optional<std::int32_t> parseInteger(std::string_view text) {
  std::int32_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end) return std::nullopt;
  return number;
}

std::optional<Range> makeRange(std::optional<std::string_view> prefix, std::string_view first,
                               std::string_view last) {
  const auto from = parseInteger(first);
  const auto to = parseInteger(last);
  if (!from || !to || *from > *to) return std::nullopt;
  return Range{prefix, *from, *to};
}

// "N", "first-last" or "prefix[first-last]". The first '-' of the text is the separator, even if it
// is in the prefix.
std::optional<Range> parseRange(std::string_view text) {
  const auto dash = text.find('-');
  if (dash == std::string_view::npos) return makeRange(std::nullopt, "1", text);

  const auto open = text.find('[');
  const auto close = text.find(']');
  if (open == std::string_view::npos || close == std::string_view::npos)
    return makeRange(std::nullopt, text.substr(0, dash), text.substr(dash + 1));

  if (open > dash || close < dash) return std::nullopt;
  return makeRange(text.substr(0, open), text.substr(open + 1, dash - open - 1),
                   text.substr(dash + 1, close - dash - 1));
}

MallocPtr<char> prefixOf(const Range& range) {
  std::optional<std::string> identity;
  std::string_view text;
  if (range.prefix) {
    text = *range.prefix;
  } else {
    identity = tev::sources::defaultIdentity();
    if (!identity) return nullptr;  // already logged
    text = *identity;
  }
  MallocPtr<char> prefix(strndup(text.data(), text.size()));
  if (!prefix) TEV_LOG_ERROR("[source] Failed to allocate memory");
  return prefix;
}

ArrayPtr fromRange(const Range& range) {
  if (std::int64_t{range.last} - range.first >= TEV_MAX_SOURCES) return nullptr;  // never fits
  const MallocPtr<char> prefix = prefixOf(range);
  ArrayPtr array(prefix ? tev_create_source_array() : nullptr);
  if (!array) return nullptr;
  for (std::int64_t number = range.first; number <= range.last; ++number)
    if (!append(*array, std::string(prefix.get()) + '_' + std::to_string(number))) return nullptr;
  return array;
}

ArrayPtr fromText(const char* text) {
  const auto range = text ? parseRange(text) : std::nullopt;
  if (!range) {
    TEV_LOG_ERROR("[source] Invalid source format: %s", text ? text : "(null)");
    return nullptr;
  }
  return fromRange(*range);
}

// A line up to a zero byte, without a trailing carriage return, truncated when it is too long.
std::string_view lineText(std::string_view line) {
  std::string_view text = line.substr(0, line.find('\0')).substr(0, kLongestLine);
  if (text.ends_with('\r')) text.remove_suffix(1);
  return text;
}

// A fabric-scan report marks its hosts "H-..." and its switches "S-...".
bool isFabricScan(const Lines& lines) {
  for (const std::string_view line : lines) {
    const std::string_view text = lineText(line);
    if (text.find("H-") != std::string_view::npos || text.find("S-") != std::string_view::npos)
      return true;
  }
  return false;
}

// The text in the first parentheses of a report's line.
std::optional<std::string_view> inParentheses(std::string_view text) {
  const auto open = text.find('(');
  if (open == std::string_view::npos) return std::nullopt;
  const auto close = text.find(')', open);
  if (close == std::string_view::npos) return std::nullopt;
  return text.substr(open + 1, close - open - 1);
}

// A pipe or a device counts as a file.
bool isFile(const char* path) {
  boost::system::error_code ignored;
  const auto status = boost::filesystem::status(path, ignored);
  return boost::filesystem::exists(status) && !boost::filesystem::is_directory(status);
}

ArrayPtr fromFile(const char* path) {
  const auto content = tev::support::readWholeText("source", path);
  if (!content) {
    TEV_LOG_ERROR("[source] Failed to open file: %s", path);
    return nullptr;
  }
  ArrayPtr array(tev_create_source_array());
  if (!array) return nullptr;
  const Lines lines(*content);
  const bool is_fabric_scan = isFabricScan(lines);
  for (const std::string_view line : lines) {
    const std::string_view text = lineText(line);
    std::optional<std::string_view> id;
    if (is_fabric_scan)
      id = inParentheses(text);
    else if (!text.empty())
      id = text;
    if (id && !append(*array, *id)) return nullptr;
  }
  return array;
}

}  // namespace

tev_source_array_t* tev_create_source_array_from_string(const char* text) {
  return tev::support::guarded<tev_source_array_t*>(__func__, nullptr,
                                                    [&] { return fromText(text).release(); });
}

tev_source_array_t* tev_create_source_array_from_input(const char* text) {
  return tev::support::guarded<tev_source_array_t*>(__func__, nullptr, [&] {
    return (text && isFile(text) ? fromFile(text) : fromText(text)).release();
  });
}
