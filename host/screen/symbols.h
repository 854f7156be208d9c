// The characters of traces and bars.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tev::host {

enum class SymbolSet : std::uint8_t {
  braille,  // two points per character
  blocks,   // one point per character
  plain,    // ASCII, one point per character
};

std::optional<SymbolSet> symbolSetNamed(std::string_view name);

// "braille, blocks or plain".
std::string symbolSetNames();

// One point of a trace.
struct TracePoint {
  enum class State : std::uint8_t { missing, unknown, known };
  State state = State::missing;
  float value = 0;
};

class Symbols {
 public:
  explicit Symbols(SymbolSet set) : set_(set) {}

  // Number of points that a trace of `width` characters shows.
  std::size_t pointsIn(std::size_t width) const;

  // The last points, with the newest at the right end, in `rows` lines from the top. A known point
  // has at least the lowest height. A missing one is blank, an unknown one a question mark. `top`
  // is the value with the full height.
  std::vector<std::string> trace(std::span<const TracePoint> points, double top, std::size_t width,
                                 std::size_t rows) const;

  // One character, whose height is the share `value / top`.
  std::string bar(double value, double top) const;

  std::string times() const { return set_ == SymbolSet::plain ? "x" : "×"; }
  // The keys with arrows.
  std::string upAndDown() const { return set_ == SymbolSet::plain ? "Up/Down" : "↑↓"; }
  std::string leftAndRight() const { return set_ == SymbolSet::plain ? "Left/Right" : "←→"; }

 private:
  unsigned levels() const;  // of one character
  std::size_t pointsPerCharacter() const { return set_ == SymbolSet::braille ? 2 : 1; }
  std::string character(unsigned left, unsigned right) const;

  SymbolSet set_;
};

}  // namespace tev::host
