#include "host/events/byte_counters.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/events/values.h"

namespace tev::host {
namespace {

constexpr double kSafeShare = 0.25;  // of a counter's range, per sample
constexpr double kBytesPerGbit = 1e9 / 8;

enum class Unit { bytes, packets, bits };

bool isLower(char c) {
  return c >= 'a' && c <= 'z';
}
bool isUpper(char c) {
  return c >= 'A' && c <= 'Z';
}

// The words in lower case. A word consists of letters, and also ends before a capital letter that
// follows a small one.
std::vector<std::string> wordsOf(std::string_view text) {
  std::vector<std::string> words;
  char before = ' ';
  for (const char c : text) {
    const bool is_letter = isLower(c) || isUpper(c);
    const bool continues = (isLower(before) || isUpper(before)) && !(isLower(before) && isUpper(c));
    if (is_letter && !continues) words.emplace_back();
    if (is_letter) words.back() += isUpper(c) ? static_cast<char>(c - 'A' + 'a') : c;
    before = c;
  }
  return words;
}

std::optional<Unit> unitOf(const std::string& word) {
  constexpr std::string_view kBytes[] = {"byte", "bytes", "octet", "octets"};
  constexpr std::string_view kPackets[] = {"packet", "packets", "pkt", "pkts", "frame", "frames"};
  constexpr std::string_view kBits[] = {"bit", "bits"};
  if (std::ranges::find(kBytes, word) != std::end(kBytes)) return Unit::bytes;
  if (std::ranges::find(kPackets, word) != std::end(kPackets)) return Unit::packets;
  if (std::ranges::find(kBits, word) != std::end(kBits)) return Unit::bits;
  return std::nullopt;
}

bool saysRate(const std::vector<std::string>& words) {
  return std::ranges::any_of(words,
                             [](const auto& word) { return word == "per" || word == "rate"; });
}

// The unit that the column counts.
std::optional<Unit> countedUnit(const Column& column) {
  if (column.key != 0 || !isCounterSized(column)) return std::nullopt;
  const auto described = wordsOf(column.description);
  const auto named = wordsOf(column.name);
  if (saysRate(described) || saysRate(named)) return std::nullopt;
  for (const std::string& word : described)
    if (const auto unit = unitOf(word)) return unit;
  std::optional<Unit> last;
  for (const std::string& word : named)
    if (const auto unit = unitOf(word)) last = unit;
  return last;
}

}  // namespace

bool countsBytes(const Column& column) {
  return countedUnit(column) == Unit::bytes;
}

bool countsPackets(const Column& column) {
  return countedUnit(column) == Unit::packets;
}

Seconds longestSafeInterval(unsigned bits, double per_second) {
  return Seconds(std::ldexp(kSafeShare, static_cast<int>(bits)) / per_second);
}

double highestSafeRate(unsigned bits, Seconds interval) {
  return std::ldexp(kSafeShare, static_cast<int>(bits)) / interval.count();
}

double bytesPerSecond(double gbits_per_second) {
  return gbits_per_second * kBytesPerGbit;
}

double gbitsPerSecond(double bytes_per_second) {
  return bytes_per_second / kBytesPerGbit;
}

unsigned bitsOf(const Column& column) {
  return static_cast<unsigned>(column.element_size * 8);
}

bool followsByteCounters(Seconds interval, double link_gbits_per_second, const Column& column) {
  return !countsBytes(column) ||
         interval <= longestSafeInterval(bitsOf(column), bytesPerSecond(link_gbits_per_second));
}

}  // namespace tev::host
