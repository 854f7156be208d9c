#include "host/figures/field_kind.h"

namespace tev::host {
namespace {

constexpr std::uint32_t kFalls = 2;
constexpr std::uint32_t kChangesPerFall = 8;  // of a gauge, at most
constexpr std::uint32_t kRises = 3;
constexpr std::uint64_t kSpanUsec = 5'000'000;

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
