// The table: a block for each device, with a row for each field and a column for each series.
#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <map>
#include <optional>
#include <utility>

#include "host/events/values.h"
#include "host/figures/recent.h"
#include "host/outputs/table_layout.h"
#include "host/outputs/terminal.h"
#include "host/outputs/text_output.h"
#include "host/support/short_number.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::uint64_t kFoldAfter = 3;  // samples

// One field of one series.
struct Field {
  const Column* column;
  int track;         // -1: it is not followed
  std::string text;  // when it is not followed
};

struct SeriesFields {
  const Series* series = nullptr;  // null for a series that this output does not get
  std::vector<Field> fields;
};

// A row of a block while it is collected.
struct Row {
  bool moved = false;
  bool same = true;  // all series have `value`
  std::optional<std::uint64_t> value;
};

// The block of a series.
std::string titleOf(const Series& series) {
  return series.type->keys.empty() ? asPrintable(series.type->name) : series.device;
}

std::vector<std::string> notesOf(const RunStatus& status) {
  std::vector<std::string> notes = status.notes;
  if (!status.hang.empty()) notes.push_back("tev-host: " + status.hang);
  return notes;
}

class TableOutput final : public TextOutput {
 public:
  explicit TableOutput(const OutputSetup& setup)
      : TextOutput(setup), figures_(setup.figures), recent_(figures_), screen_(setup.file) {}

  bool drawsOnTerminal() const override { return live_; }

  void event(const Event& event, const Series& series) override {
    if (series.number >= all_.size() || !all_[series.number].series) addSeries(series);
    for (Field& field : all_[series.number].fields) {
      if (field.track >= 0) continue;
      field.text.clear();
      appendPlain(field.text, *field.column, event.data);
      field.text = asPrintable(field.text);
    }
    has_news_ = true;
  }

  void update(const RunStatus& status) override {
    recent_.update(status.now_usec);
    has_news_ |= !status.health->changes().empty() || !status.health->missing().empty();
    if (live_)
      screen_.draw(lines(status, false), notesOf(status));
    else
      print(status, false);
    has_news_ = false;
    TextOutput::update(status);
  }

  void redraw(const RunStatus& status) override {
    if (!live_) return;
    screen_.draw(lines(status, false), notesOf(status));
    file_.flush();
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
    if (all_.size() <= series.number) all_.resize(series.number + 1);
    SeriesFields& added = all_[series.number];
    added.series = &series;
    for (const Column& column : projection_.columns(*series.type))
      if (column.key == 0)
        added.fields.push_back({&column, figures_.trackOf(*series.type, column), ""});
  }

  TableCell cellOf(const SeriesFields& one, const Field& field, bool whole_run) const {
    if (field.track < 0) return {field.text, ""};
    const auto track = static_cast<std::size_t>(field.track);
    const Reading reading =
        whole_run ? recent_.ofWholeRun(*one.series, track) : recent_.of(*one.series, track);
    if (!reading.counts()) {
      const bool undecided = reading.kind == FieldKind::undecided && reading.has_moved;
      return {shortNumber(static_cast<double>(reading.value)), undecided ? "?" : ""};
    }
    TableCell cell;
    const char* const doubt = reading.is_uncertain ? "~" : "";
    cell.value =
        (reading.is_lower_bound ? ">" : doubt) + shortNumber(static_cast<double>(reading.total));
    if (!whole_run && !recent_.isFresh(*one.series))
      cell.rate = "-";
    else if (reading.per_second)
      cell.rate = doubt + shortNumber(*reading.per_second);
    else if (reading.has_unknown)
      cell.rate = "?";
    return cell;
  }

  // Prints plain text, below the earlier text.
  void print(const RunStatus& status, bool whole_run) {
    if (!has_news_) return;
    for (const std::string& line : lines(status, whole_run)) file_.buffer() += line + "\n";
    file_.buffer() += "\n";
  }

  std::vector<std::string> lines(const RunStatus& status, bool whole_run) const {
    const std::size_t width = terminalSize(file_).columns;
    const std::vector<TableBlock> table = tableBlocks(status, whole_run);
    std::vector<std::string> all{heading(status, whole_run, table.size()), ""};
    for (std::string& line : layOutTable(table, width, bold_)) all.push_back(std::move(line));
    if (all_.empty() && whole_run)
      all.emplace_back("No samples arrived.");
    else if (all_.empty() && live_)
      all.emplace_back("Waiting for the first samples ...");
    return all;
  }

  static std::string heading(const RunStatus& status, bool whole_run, std::size_t devices) {
    std::string text = fmt::format("{}   {}{:.1f} s   {} device{}", asPrintable(status.source),
                                   whole_run ? "whole run: " : "", status.elapsed_seconds, devices,
                                   devices == 1 ? "" : "s");
    if (status.lost_samples > 0) text += fmt::format("   {} samples lost", status.lost_samples);
    return text;
  }

  std::vector<TableBlock> tableBlocks(const RunStatus& status, bool whole_run) const {
    std::vector<TableBlock> blocks;
    std::vector<std::map<std::string, Row>> rows;  // by block
    const auto block_of = [&](const std::string& title) {
      const auto found = std::ranges::find(blocks, title, &TableBlock::title);
      if (found != blocks.end()) return static_cast<std::size_t>(found - blocks.begin());
      blocks.push_back({title, {}, {}, {}, {}});
      rows.emplace_back();
      return blocks.size() - 1;
    };
    for (const SeriesFields& one : all_) {
      if (!one.series) continue;
      const std::size_t block = block_of(titleOf(*one.series));
      for (const Field& field : one.fields) addToRow(rows[block], one, field);
    }
    for (const DeviceHealth& device : status.health->devices())
      if (std::string text = describe(device, status.now_usec); !text.empty())
        blocks[block_of(device.counts.device)].condition = std::move(text);
    for (const SeriesFields& one : all_) {
      if (!one.series) continue;
      const std::size_t block = block_of(titleOf(*one.series));
      addColumn(blocks[block], rows[block], one, whole_run);
    }
    for (std::size_t i = 0; i < blocks.size(); ++i) blocks[i].folded = foldedText(rows[i]);
    return blocks;
  }

  void addToRow(std::map<std::string, Row>& rows, const SeriesFields& one,
                const Field& field) const {
    Row& row = rows[asPrintable(field.column->name)];
    const SeriesFigures& figures = figures_.of(*one.series);
    if (field.track < 0 || figures.samples < kFoldAfter) {
      row.moved = true;
      return;
    }
    const Track& track = figures.tracks[static_cast<std::size_t>(field.track)];
    row.moved |= track.hasMoved();
    if (row.value && *row.value != track.value()) row.same = false;
    row.value = track.value();
  }

  // "never moved: path_switches 0, window_kib 7".
  static std::string foldedText(const std::map<std::string, Row>& rows) {
    std::string text;
    for (const auto& [name, row] : rows) {
      if (row.moved) continue;
      text += (text.empty() ? "never moved: " : ", ") + name;
      if (row.same) text += fmt::format(" {}", row.value.value_or(0));
    }
    return text;
  }

  void addColumn(TableBlock& block, const std::map<std::string, Row>& rows, const SeriesFields& one,
                 bool whole_run) const {
    TableColumn& column = block.columns.emplace_back();
    column.heading = headingOf(*one.series);
    for (const Field& field : one.fields) {
      const std::string name = asPrintable(field.column->name);
      if (!rows.at(name).moved) continue;
      const auto row = std::ranges::find(block.rows, name);
      column.cells[static_cast<std::size_t>(row - block.rows.begin())] =
          cellOf(one, field, whole_run);
      if (row == block.rows.end()) block.rows.push_back(name);
    }
  }

  const Figures& figures_;
  RecentFigures recent_;
  LiveScreen screen_;
  const bool live_ = canRedraw(file_);
  const bool bold_ = live_ && coloursAreWanted();
  std::deque<SeriesFields> all_;  // by the series' number
  bool has_news_ = false;
};

}  // namespace

std::unique_ptr<Output> makeTable(const OutputSetup& setup) {
  return std::make_unique<TableOutput>(setup);
}

}  // namespace tev::host
