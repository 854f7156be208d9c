#include "host/screen/styled_text.h"

#include "host/support/text.h"

namespace tev::host {

std::size_t Line::width() const {
  std::size_t sum = 0;
  for (const Piece& piece : pieces) sum += displayWidth(piece.text);
  return sum;
}

std::string Line::plain() const {
  std::string text;
  for (const Piece& piece : pieces) text += piece.text;
  while (text.ends_with(' ')) text.pop_back();
  return text;
}

void cut(Line& line, std::size_t width) {
  std::size_t left = width;
  for (Piece& piece : line.pieces) {
    const std::size_t wide = displayWidth(piece.text);
    if (wide > left) piece.text = left == 0 ? "" : padRight(piece.text, left);
    left -= wide < left ? wide : left;
  }
}

}  // namespace tev::host
