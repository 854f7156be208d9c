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
  std::string rate;  // per second
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
  std::string condition;  // of a device with a problem
  std::string folded;     // the fields that have no row
};

// Returns lines of at most `width` characters. Columns that do not fit are placed below the others.
// `bold` adds terminal attributes, which do not count as characters.
std::vector<std::string> layOutTable(const std::vector<TableBlock>& blocks, std::size_t width,
                                     bool bold);

}  // namespace tev::host
