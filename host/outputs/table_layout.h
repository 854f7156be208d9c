// The live table's lines.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace tev::host {

// One field of one series. Empty texts leave their place blank.
struct TableCell {
  std::string value;
  std::string change;  // since the beginning
  std::string rate;    // per second
};

struct TableColumn {
  std::string heading;
  std::map<std::size_t, TableCell> cells;  // by row
};

// One device.
struct TableBlock {
  std::string title;
  std::vector<std::string> rows;  // names of the fields
  std::vector<TableColumn> columns;
};

// Returns lines of at most `width` characters. When the widest block does not fit, `change` is
// omitted in all blocks. Columns that still do not fit are placed below the others. `bold` adds
// terminal attributes, which do not count as characters.
std::vector<std::string> layOutTable(const std::vector<TableBlock>& blocks, std::size_t width,
                                     bool bold);

}  // namespace tev::host
