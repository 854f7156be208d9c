#include "host/screen/symbols.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace tev::host {
namespace {

constexpr std::array<std::string_view, 3> kNames{"braille", "blocks", "plain"};  // by SymbolSet
constexpr std::array<std::string_view, 9> kBlocks{" ", "▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
constexpr std::string_view kPlain = " _.:-=+*#";

// Dots from the bottom, of the left and the right half of a Braille character.
constexpr std::array<unsigned, 5> kLeftDots{0, 0x40, 0x44, 0x46, 0x47};
constexpr std::array<unsigned, 5> kRightDots{0, 0x80, 0xA0, 0xB0, 0xB8};

std::string braille(unsigned left, unsigned right) {
  const unsigned dots = kLeftDots[left] + kRightDots[right];
  if (dots == 0) return " ";  // some fonts draw hollow dots
  return {'\xE2', static_cast<char>(0xA0 + (dots >> 6)), static_cast<char>(0x80 + (dots & 0x3F))};
}

// The height of a known point, from 1 to `full`.
unsigned heightOf(double value, double top, unsigned full) {
  if (!(top > 0) || !(value > 0)) return 1;
  const double share = std::min(1.0, value / top);
  return std::max(1U, static_cast<unsigned>(std::lround(share * full)));
}

}  // namespace

std::optional<SymbolSet> symbolSetNamed(std::string_view name) {
  const auto found = std::ranges::find(kNames, name);
  if (found == kNames.end()) return std::nullopt;
  return static_cast<SymbolSet>(found - kNames.begin());
}

std::string symbolSetNames() {
  return "braille, blocks or plain";
}

unsigned Symbols::levels() const {
  return set_ == SymbolSet::braille ? 4 : 8;
}

std::string Symbols::character(unsigned left, unsigned right) const {
  switch (set_) {
    case SymbolSet::braille:
      return braille(left, right);
    case SymbolSet::blocks:
      return std::string(kBlocks[left]);
    case SymbolSet::plain:
      return {kPlain[left]};
  }
  return {};
}

std::size_t Symbols::pointsIn(std::size_t width) const {
  return width * pointsPerCharacter();
}

std::vector<std::string> Symbols::trace(std::span<const TracePoint> points, double top,
                                        std::size_t width, std::size_t rows) const {
  const std::size_t per_character = pointsPerCharacter();
  const std::size_t room = pointsIn(width);
  if (points.size() > room) points = points.last(room);
  const std::size_t blank = room - points.size();
  const unsigned full = levels() * static_cast<unsigned>(rows);

  std::vector<std::string> lines(rows);
  for (std::size_t column = 0; column < width; ++column) {
    std::array<unsigned, 2> heights{};
    bool unknown = false;
    for (std::size_t i = 0; i < per_character; ++i) {
      const std::size_t place = column * per_character + i;
      if (place < blank) continue;
      const TracePoint& point = points[place - blank];
      unknown |= point.state == TracePoint::State::unknown;
      if (point.state == TracePoint::State::known)
        heights[i] = heightOf(static_cast<double>(point.value), top, full);
    }
    for (std::size_t row = 0; row < rows; ++row) {
      const auto below = levels() * static_cast<unsigned>(rows - 1 - row);
      const auto inRow = [&](unsigned height) {
        return height <= below ? 0 : std::min(levels(), height - below);
      };
      if (unknown)
        lines[row] += row + 1 == rows ? "?" : " ";
      else
        lines[row] += character(inRow(heights[0]), inRow(heights[1]));
    }
  }
  return lines;
}

std::string Symbols::bar(double value, double top) const {
  const unsigned height = heightOf(value, top, levels());
  return character(height, height);
}

}  // namespace tev::host
