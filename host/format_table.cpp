// The table: per device a block, with a row per field and a column per series.
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>

#include "host/formatter.h"
#include "host/rates.h"
#include "host/short_number.h"
#include "host/table_layout.h"
#include "host/terminal.h"
#include "host/text.h"
#include "host/values.h"

namespace tev::host {
namespace {

// One field of one series.
struct Field {
  const Column* column;
  std::optional<CounterTrack> track;  // of a number that may be a counter
  std::string text;                   // of anything else
};

struct SeriesFields {
  const Series* series;
  std::vector<Field> fields;
};

// What tells the series apart from the device's others: the rest of its key, else the last word of
// the type's name, without a number behind it.
std::string headingOf(const Series& series) {
  std::string heading;
  for (std::size_t i = 0; i < series.keys.size(); ++i)
    heading += (i ? ", " : "") + series.type->keys[i + 1].name + " " + series.keys[i];
  if (!heading.empty()) return heading;

  heading = asPrintable(series.type->name);
  const std::size_t last = heading.find_last_not_of("0123456789");
  if (last != std::string::npos && heading[last] == '_') heading.resize(last);
  return heading.substr(heading.rfind('_') + 1);
}

TableCell cellOf(const Field& field, bool whole_run) {
  if (!field.track) return {field.text, "", ""};
  const CounterTrack& track = *field.track;
  TableCell cell{shortNumber(static_cast<double>(track.value())), "", ""};
  if (track.isGauge()) return cell;
  const auto rate = whole_run ? track.perSecondOfAll() : track.perSecond();
  if (!rate) return cell;
  cell.change = (track.total() > 0 ? "+" : "") + shortNumber(static_cast<double>(track.total()));
  cell.rate = shortNumber(*rate);
  return cell;
}

class TableFormatter : public Formatter {
 public:
  explicit TableFormatter(OutputFile& output) : output_(output), screen_(output) {}

  void event(const Event& event, const Series& series) override {
    if (series.number >= all_.size()) addSeries(series);
    for (Field& field : all_[series.number].fields) {
      if (field.track) {
        field.track->sample(unsignedOf(*field.column, event.data), event.timestamp_usec);
      } else {
        field.text.clear();
        appendPlain(field.text, *field.column, event.data);
        field.text = asPrintable(field.text);
      }
    }
    has_news_ = true;
  }

  void update(const RunStatus& status) override {
    for (SeriesFields& one : all_)
      for (Field& field : one.fields)
        if (field.track) field.track->endWindow();
    if (live_)
      screen_.draw(lines(status, false), status.notes);
    else
      print(status, false);
    has_news_ = false;
  }

  void end(const RunStatus& status) override {
    leave();
    has_news_ = true;
    print(status, true);
  }

  void leave() override { screen_.leave(); }

 private:
  void addSeries(const Series& series) {
    // Series may have appeared whose events were not passed on.
    while (all_.size() <= series.number) all_.push_back({nullptr, {}});
    SeriesFields& added = all_[series.number];
    added.series = &series;
    for (const Column& column : series.type->columns) {
      if (column.key != 0) continue;
      Field field{&column, std::nullopt, ""};
      if (isCounterSized(column))
        field.track.emplace(static_cast<unsigned>(column.element_size * 8), column.counting_mode,
                            trends_[&column]);
      added.fields.push_back(std::move(field));
    }
  }

  // Plain text: the whole table once more, below the last one.
  void print(const RunStatus& status, bool whole_run) {
    if (!has_news_) return;
    for (const std::string& line : lines(status, whole_run)) output_.buffer() += line + "\n";
    output_.buffer() += "\n";
  }

  std::vector<std::string> lines(const RunStatus& status, bool whole_run) const {
    const std::size_t width = terminalSize(output_).columns;
    const std::vector<TableBlock> table = blocks(whole_run);
    std::vector<std::string> all{heading(status, whole_run, table.size()), ""};
    for (std::string& line : layOutTable(table, width, bold_)) all.push_back(std::move(line));
    if (table.empty()) all.emplace_back("Waiting for the first samples ...");
    return all;
  }

  static std::string heading(const RunStatus& status, bool whole_run, std::size_t devices) {
    std::string text = fmt::format("{}   {}{:.1f} s   {} device{}", asPrintable(status.provider),
                                   whole_run ? "whole run: " : "", status.elapsed_seconds, devices,
                                   devices == 1 ? "" : "s");
    if (status.lost_samples > 0) text += fmt::format("   {} samples lost", status.lost_samples);
    return text;
  }

  std::vector<TableBlock> blocks(bool whole_run) const {
    std::vector<TableBlock> blocks;
    for (const SeriesFields& one : all_) {
      if (!one.series) continue;
      const std::string& title =
          one.series->type->keys.empty() ? one.series->type->name : one.series->device;
      auto block = std::ranges::find(blocks, title, &TableBlock::title);
      if (block == blocks.end()) block = blocks.insert(block, TableBlock{title, {}, {}});
      addColumn(*block, one, whole_run);
    }
    return blocks;
  }

  static void addColumn(TableBlock& block, const SeriesFields& one, bool whole_run) {
    TableColumn& column = block.columns.emplace_back();
    column.heading = headingOf(*one.series);
    for (const Field& field : one.fields) {
      const std::string name = asPrintable(field.column->name);
      const auto row = std::ranges::find(block.rows, name);
      column.cells[static_cast<std::size_t>(row - block.rows.begin())] = cellOf(field, whole_run);
      if (row == block.rows.end()) block.rows.push_back(name);
    }
  }

  OutputFile& output_;
  LiveScreen screen_;
  const bool live_ = canRedraw(output_);
  const bool bold_ = live_ && !std::getenv("NO_COLOR");
  std::map<const Column*, Trend> trends_;
  std::deque<SeriesFields> all_;  // by the series' number
  bool has_news_ = false;
};

}  // namespace

std::unique_ptr<Formatter> makeTableFormatter(OutputFile& output) {
  return std::make_unique<TableFormatter>(output);
}

}  // namespace tev::host
