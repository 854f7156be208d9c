#include "host/table_layout.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "host/text.h"

namespace tev::host {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

TableBlock device(const std::string& title, std::size_t columns) {
  TableBlock block{title, {"sent_bytes", "rtt"}, {}};
  for (std::size_t c = 0; c < columns; ++c) {
    TableColumn column{"plane " + std::to_string(c), {}};
    column.cells[0] = {std::to_string(10000 + c), "+" + std::to_string(c), "99.9k"};
    if (c != 1) column.cells[1] = {"12", "", ""};
    block.columns.push_back(column);
  }
  return block;
}

std::size_t countOf(const std::vector<std::string>& lines, const std::string& text) {
  return static_cast<std::size_t>(std::ranges::count_if(
      lines, [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

TEST(TableLayout, AlignsNamesHeadingsAndFigures) {
  EXPECT_THAT(
      layOutTable({device("d0", 2)}, 52, false),
      ElementsAre("d0                       plane 0             plane 1",
                  "              value change    /s  value change    /s",
                  "  sent_bytes  10000     +0 99.9k  10001     +1 99.9k", "  rtt            12"));
}

TEST(TableLayout, LeavesChangesOutAndBreaksColumnsWhereTheWidthEnds) {
  EXPECT_THAT(layOutTable({device("d0", 2)}, 51, false),
              ElementsAre("d0                plane 0      plane 1",
                          "              value    /s  value    /s",
                          "  sent_bytes  10000 99.9k  10001 99.9k", "  rtt            12"));
  EXPECT_THAT(
      layOutTable({device("d0", 2)}, 30, false),
      ElementsAre("d0                plane 0", "              value    /s",
                  "  sent_bytes  10000 99.9k", "  rtt            12", "d0                plane 1",
                  "              value    /s", "  sent_bytes  10001 99.9k"));
}

TEST(TableLayout, KeepsToAnyWidthAndDropsNothing) {
  for (std::size_t width = 26; width < 250; ++width) {
    const auto lines = layOutTable({device("d0", 5), device("d1", 1)}, width, false);
    for (const std::string& line : lines)
      EXPECT_LE(displayWidth(line), width) << width << ": " << line;
    for (const char* const value : {"10000", "10001", "10002", "10003", "10004"})
      EXPECT_EQ(countOf(lines, value), value == std::string("10000") ? 2u : 1u) << width;
  }
  EXPECT_THAT(layOutTable({}, 80, false), IsEmpty());
}

TEST(TableLayout, GivesTextTheWholeCellAndCutsTheRest) {
  TableBlock block{"d", {"state"}, {{"all", {{0, {"a rather long description", "", ""}}}}}};
  const auto lines = layOutTable({block}, 40, false);
  EXPECT_EQ(lines.at(2), "  state  a rather long des~");
}

}  // namespace
}  // namespace tev::host
