#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tev::host {

// Rows of cells as lines with aligned columns, each line indented by two blanks. `alignment` has a
// character per column: 'l' or 'r'. The first row has the headings.
std::string textTable(std::string_view alignment,
                      const std::vector<std::vector<std::string>>& rows);

}  // namespace tev::host
