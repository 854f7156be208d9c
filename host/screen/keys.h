// Keys, independent of the terminal library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tev::host {

enum class Key : std::uint8_t {
  none,
  up,
  down,
  left,
  right,
  page_up,
  page_down,
  home,
  end,
  enter,
  escape,
  backspace,
  tab,
  character,
  click,
};

struct KeyPress {
  Key key = Key::none;
  char character = 0;       // of Key::character, printable ASCII
  std::size_t row = 0;      // of Key::click, from the top of the screen
  bool is_doubled = false;  // of Key::click
};

}  // namespace tev::host
