#include "host/commands/text_table.h"

#include <algorithm>

#include "host/support/text.h"

namespace tev::host {

std::string textTable(std::string_view alignment,
                      const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths(alignment.size());
  for (const auto& row : rows)
    for (std::size_t i = 0; i < row.size(); ++i)
      widths[i] = std::max(widths[i], displayWidth(row[i]));
  std::string out;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i)
      line +=
          "  " + (alignment[i] == 'r' ? padLeft(row[i], widths[i]) : padRight(row[i], widths[i]));
    out += line.erase(line.find_last_not_of(' ') + 1) + "\n";
  }
  return out;
}

}  // namespace tev::host
