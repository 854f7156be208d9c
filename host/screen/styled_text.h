// Lines of text with roles in place of colours. A terminal decides how a role looks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tev::host {

enum class Role : std::uint8_t {
  normal,
  heading,    // of columns
  emphasis,   // names
  quiet,      // needs no attention
  good,       // a state
  warning,    // a state or a figure
  bad,        // a state or a figure
  uncertain,  // a figure that is not known, or not certain
  trace,
  key,  // to be pressed
};

struct Piece {
  std::string text;
  Role role;
};

struct Line {
  std::vector<Piece> pieces;
  bool is_selected = false;

  Line() = default;
  explicit Line(std::string text, Role role = Role::normal) { add(std::move(text), role); }

  Line& add(std::string text, Role role = Role::normal) {
    pieces.push_back({std::move(text), role});
    return *this;
  }
  Line& space(std::size_t count = 1) { return add(std::string(count, ' ')); }

  // Number of characters.
  std::size_t width() const;

  // The text alone, without spaces at its end.
  std::string plain() const;
};

using Lines = std::vector<Line>;

// Cuts the line to `width` characters.
void cut(Line& line, std::size_t width);

}  // namespace tev::host
