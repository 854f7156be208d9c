#include "host/outputs/table_layout.h"

#include <algorithm>

#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kGap = 2;  // before a cell
constexpr std::size_t kValueWidth = 5;
constexpr std::size_t kRateWidth = 6;  // with the blank before it
constexpr std::size_t kCellWidth = kGap + kValueWidth + kRateWidth;

class Layout {
 public:
  Layout(const std::vector<TableBlock>& blocks, std::size_t width, bool bold)
      : width_(width), bold_(bold) {
    for (const TableBlock& block : blocks) {
      label_width_ = std::max(label_width_, displayWidth(block.title));
      for (const std::string& row : block.rows)
        label_width_ = std::max(label_width_, displayWidth(row) + kIndent.size());
    }
    label_width_ = std::min(label_width_, std::max<std::size_t>(width / 2, kCellWidth));
    const std::size_t room = width > label_width_ ? width - label_width_ : 0;
    columns_per_band_ = std::max<std::size_t>(room / kCellWidth, 1);
  }

  void add(const TableBlock& block) {
    if (!lines_.empty()) lines_.emplace_back();
    for (std::size_t first = 0; first < block.columns.size(); first += columns_per_band_)
      addBand(block, first, std::min(first + columns_per_band_, block.columns.size()));
    if (block.columns.empty()) lines_.push_back(marked("\x1b[1m", block.title));
    for (const std::string& text : {block.condition, block.folded})
      if (!text.empty()) addText(text);
  }

  std::vector<std::string> takeLines() { return std::move(lines_); }

 private:
  static constexpr std::string_view kIndent = "  ";

  std::string marked(const char* attribute, const std::string& text) const {
    return bold_ ? attribute + text + "\x1b[0m" : text;
  }

  static std::string cell(const std::string& value, const std::string& rate) {
    return padLeft(value, kGap + kValueWidth) + padLeft(rate, kRateWidth);
  }

  // A text may use the whole cell.
  static std::string cell(const TableCell& content) {
    if (displayWidth(content.value) <= kGap + kValueWidth - 1)
      return cell(content.value, content.rate);
    return std::string(kGap, ' ') + padLeft(content.value, kCellWidth - kGap);
  }

  // Breaks the text at blanks.
  void addText(std::string_view text) {
    const std::size_t room = std::max(width_, kCellWidth) - kIndent.size();
    while (!text.empty()) {
      std::size_t end = text.size();
      if (displayWidth(text) > room) {
        end = text.rfind(' ', room);
        if (end == std::string_view::npos || end == 0) end = std::min(text.find(' '), text.size());
      }
      lines_.push_back(padRight(std::string(kIndent) + std::string(text.substr(0, end)), width_));
      lines_.back().erase(lines_.back().find_last_not_of(' ') + 1);
      text.remove_prefix(std::min(end + 1, text.size()));
    }
  }

  // One part of a block: the columns from `first` to before `end`, with the rows that have a cell
  // there.
  void addBand(const TableBlock& block, std::size_t first, std::size_t end) {
    std::string headings;
    std::string figures;
    for (std::size_t c = first; c < end; ++c) {
      headings += std::string(kGap, ' ') + padLeft(block.columns[c].heading, kCellWidth - kGap);
      figures += cell("value", "/s");
    }
    lines_.push_back(marked("\x1b[1m", padRight(block.title, label_width_) + headings));
    lines_.push_back(marked("\x1b[2m", std::string(label_width_, ' ') + figures));
    for (std::size_t row = 0; row < block.rows.size(); ++row) addRow(block, row, first, end);
  }

  void addRow(const TableBlock& block, std::size_t row, std::size_t first, std::size_t end) {
    std::string line;
    bool blank = true;
    for (std::size_t c = first; c < end; ++c) {
      const auto found = block.columns[c].cells.find(row);
      const bool missing = found == block.columns[c].cells.end();
      line += missing ? std::string(kCellWidth, ' ') : cell(found->second);
      blank = blank && missing;
    }
    if (blank) return;
    line.erase(line.find_last_not_of(' ') + 1);
    lines_.push_back(padRight(std::string(kIndent) + block.rows[row], label_width_) + line);
  }

  std::size_t width_;
  bool bold_;
  std::size_t label_width_ = 0;
  std::size_t columns_per_band_ = 1;
  std::vector<std::string> lines_;
};

}  // namespace

std::vector<std::string> layOutTable(const std::vector<TableBlock>& blocks, std::size_t width,
                                     bool bold) {
  Layout layout(blocks, width, bold);
  for (const TableBlock& block : blocks) layout.add(block);
  return layout.takeLines();
}

}  // namespace tev::host
