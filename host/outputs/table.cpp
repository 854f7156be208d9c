// The table: a block for each device, with a row for each field and a column for each series.
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>

#include "host/events/rates.h"
#include "host/events/values.h"
#include "host/outputs/table_layout.h"
#include "host/outputs/terminal.h"
#include "host/outputs/text_output.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// One field of one series.
struct Field {
  const Column* column;
  std::optional<CounterTrack> track;  // when the field may be a counter
  std::string text;                   // when it cannot be one
};

struct SeriesFields {
  const Series* series;
  std::vector<Field> fields;
};

// The heading of a series, which distinguishes it from the other series of its device. It is the
// rest of the key. Without such a rest, it is the last word of the type's name without the number
// at its end.
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

class TableOutput final : public TextOutput {
 public:
  explicit TableOutput(const OutputSetup& setup) : TextOutput(setup), screen_(setup.file) {}

  bool drawsOnTerminal() const override { return live_; }

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
    TextOutput::update(status);
  }

  void end(const RunStatus& status) override {
    leave();
    has_news_ = true;
    print(status, true);
    TextOutput::end(status);
  }

  void leave() override { screen_.leave(); }

 private:
  void addSeries(const Series& series) {
    // This output does not get the events of all series.
    while (all_.size() <= series.number) all_.push_back({nullptr, {}});
    SeriesFields& added = all_[series.number];
    added.series = &series;
    for (const Column& column : projection_.columns(*series.type)) {
      if (column.key != 0) continue;
      Field field{&column, std::nullopt, ""};
      if (isCounterSized(column))
        field.track.emplace(static_cast<unsigned>(column.element_size * 8), column.counting_mode,
                            trends_[&column]);
      added.fields.push_back(std::move(field));
    }
  }

  // Prints plain text, below the earlier text.
  void print(const RunStatus& status, bool whole_run) {
    if (!has_news_) return;
    for (const std::string& line : lines(status, whole_run)) file_.buffer() += line + "\n";
    file_.buffer() += "\n";
  }

  std::vector<std::string> lines(const RunStatus& status, bool whole_run) const {
    const std::size_t width = terminalSize(file_).columns;
    const std::vector<TableBlock> table = tableBlocks(whole_run);
    std::vector<std::string> all{heading(status, whole_run, table.size()), ""};
    for (std::string& line : layOutTable(table, width, bold_)) all.push_back(std::move(line));
    if (table.empty()) all.emplace_back("Waiting for the first samples ...");
    return all;
  }

  static std::string heading(const RunStatus& status, bool whole_run, std::size_t devices) {
    std::string text = fmt::format("{}   {}{:.1f} s   {} device{}", asPrintable(status.source),
                                   whole_run ? "whole run: " : "", status.elapsed_seconds, devices,
                                   devices == 1 ? "" : "s");
    if (status.lost_samples > 0) text += fmt::format("   {} samples lost", status.lost_samples);
    return text;
  }

  std::vector<TableBlock> tableBlocks(bool whole_run) const {
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

  LiveScreen screen_;
  const bool live_ = canRedraw(file_);
  const bool bold_ = live_ && !std::getenv("NO_COLOR");
  std::map<const Column*, Trend> trends_;
  std::deque<SeriesFields> all_;  // by the series' number
  bool has_news_ = false;
};

}  // namespace

std::unique_ptr<Output> makeTable(const OutputSetup& setup) {
  return std::make_unique<TableOutput>(setup);
}

}  // namespace tev::host
