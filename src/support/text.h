#pragma once

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tev/export.h"

namespace tev::string {

// `text` without white space (blank, tab, new line, carriage return, form feed, vertical tab) at
// both ends.
TEV_API std::string trim(std::string_view text);

}  // namespace tev::string

namespace tev::support {

// `text` without any of `characters` at both ends.
std::string_view trimView(std::string_view text, std::string_view characters);

// The pieces between separators, including empty ones. A text without a separator is one piece.
std::vector<std::string_view> split(std::string_view text, char separator);

// Iterates over the lines of a text, without their line feeds: for (std::string_view line :
// Lines(text)). The text must outlive this object.
class Lines {
 public:
  class Iterator {
   public:
    explicit Iterator(std::string_view rest) : rest_(rest) {}
    std::string_view operator*() const { return rest_.substr(0, rest_.find('\n')); }
    Iterator& operator++() {
      rest_.remove_prefix(std::min(rest_.size(), (**this).size() + 1));
      return *this;
    }
    bool operator==(std::default_sentinel_t) const { return rest_.empty(); }

   private:
    std::string_view rest_;
  };

  explicit Lines(std::string_view text) : text_(text) {}
  Iterator begin() const { return Iterator(text_); }
  std::default_sentinel_t end() const { return {}; }

 private:
  std::string_view text_;
};

}  // namespace tev::support
