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

// Lines of at most `width` columns. Changes are left out where the widest block would not fit with
// them; columns that do not fit then either stand below the others. `bold` adds terminal
// attributes, which take up no columns.
std::vector<std::string> layOutTable(const std::vector<TableBlock>& blocks, std::size_t width,
                                     bool bold);

}  // namespace tev::host
