#include "host/figures/field_kind.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <string>
#include <string_view>

namespace tev::host {
namespace {

constexpr std::uint32_t kFalls = 2;
constexpr std::uint32_t kChangesPerFall = 8;  // of a gauge, at most
constexpr std::uint32_t kRises = 3;
constexpr std::uint64_t kSpanUsec = 5'000'000;

constexpr std::array<std::string_view, 4> kByteWords = {"byte", "bytes", "octet", "octets"};
constexpr std::array<std::string_view, 5> kPacketWords = {"packet", "packets", "pkt", "pkts",
                                                          "frames"};

// Calls `use` for each run of letters, in lower case, until it returns true.
template <class Use>
bool anyWord(std::string_view text, Use&& use) {
  std::string word;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (std::isalpha(byte) != 0) {
      word += static_cast<char>(std::tolower(byte));
      continue;
    }
    if (use(word)) return true;
    word.clear();
  }
  return use(word);
}

template <class Words>
bool says(const Column& column, const Words& words) {
  const auto known = [&](const std::string& word) {
    return std::ranges::find(words, word) != words.end();
  };
  return anyWord(column.name, known) || anyWord(column.description, known);
}

}  // namespace

const char* nameOf(FieldKind kind) {
  switch (kind) {
    case FieldKind::undecided:
      return "undecided";
    case FieldKind::counter:
      return "counter";
    case FieldKind::gauge:
      return "gauge";
    case FieldKind::increase:
      return "increase";
  }
  return "";
}

bool saysBytes(const Column& column) {
  return says(column, kByteWords);
}

bool saysCounter(const Column& column) {
  return saysBytes(column) || says(column, kPacketWords);
}

void KindJudge::judge(const Changes& series, bool rose, std::uint64_t now_usec) {
  ++(rose ? rises_ : falls_);
  if (kind_ != FieldKind::undecided) return;
  if (series.falls >= kFalls && series.falls * kChangesPerFall >= series.rises + series.falls) {
    kind_ = FieldKind::gauge;
    return;
  }
  if (series.falls > 0 || falls_ * kChangesPerFall >= rises_ + falls_) return;
  const bool long_enough = now_usec >= series.begin_usec + kSpanUsec;
  if (text_says_counter_ || (series.rises >= kRises && long_enough)) kind_ = FieldKind::counter;
}

}  // namespace tev::host
