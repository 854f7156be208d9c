// The page that explains the keys and the figures.
#include <string>

#include "host/screen/pages.h"
#include "host/support/text.h"

namespace tev::host {

Page helpPage(const Symbols& symbols) {
  struct Row {
    std::string keys;
    const char* text;
  };
  const Row rows[] = {
      {symbols.upAndDown() + ", PgUp, PgDn", "choose an adapter, or a field of an adapter"},
      {"Enter, Esc", "open the adapter; back to all adapters"},
      {symbols.leftAndRight(), "all adapters: the field in which planes are compared"},
      {"", "an adapter: further planes, if there is not enough room"},
      {"Tab", "an adapter: the next one"},
      {"/", "show the adapters whose name contains the text; Esc shows all"},
      {"s, r", "order: worst, name, rate, missing; the other way round"},
      {"p, space", "pause the screen; the sampling continues"},
      {"+, -", "time between two updates of the screen"},
      {"q, Ctrl-C", "quit"},
  };
  Page page;
  page.lines.emplace_back();
  for (const Row& row : rows) {
    Line line;
    line.space(2).add(padRight(row.keys, 18), Role::key).add(row.text);
    page.lines.push_back(std::move(line));
  }
  page.lines.emplace_back();
  for (const char* const text :
       {"worst      the plane with the largest share, if that is more than chance explains",
        "of mean    its amount, as a multiple of the mean of all planes",
        "missing    samples that were lost, refused or missed",
        "?  ~       a figure that is not known; a rate that is not certain",
        "..         not decided yet whether the field counts (--counter, --gauge)",
        "peak       the highest rate, or value, of a single sample"})
    page.lines.emplace_back("  " + std::string(text));
  return page;
}

}  // namespace tev::host
