// The full screen without a terminal: pages as text, keys as values.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/events/decoder.h"
#include "host/plugin/plugin_source.h"
#include "host/screen/frame.h"
#include "host/screen/model.h"
#include "host/support/text.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

std::string textOf(const Frame& frame) {
  std::string text;
  for (const Line& line : frame.lines) text += line.plain() + "\n";
  return text;
}

// The samples of a scenario, one second apart in the time of their stamps.
class Played {
 public:
  explicit Played(std::size_t seconds) {
    test::TempTree tree;
    tree.write("s.json", R"({"base": "default", "clock": "samples", "sample_step_usec": 1000000})");
    PluginOptions options;
    options.path = PLUGIN;
    options.usual_devices = false;
    options.options = {{"multipath-vuna-lib-path", SIMULATOR},
                       {"multipath-sample-interval-usec", "1000"}};
    options.simulated = true;
    options.simulator_scenario = tree.path("s.json");
    source_.emplace(options, std::uint64_t{1} << 20);
    while (events_.size() <= seconds)
      source_->fetch([this](Blocks blocks) { keep(blocks); }, [] { return false; });
    source_->close();
  }

  const SchemaView& schema() const { return source_->schema(); }

  // Calls `take` with each event of this second.
  template <class Take>
  void play(std::size_t second, const Take& take) {
    for (const auto& [event, bytes] : events_[second])
      take(Event{stamp(second), event.type, bytes.data()});
  }

  static std::uint64_t stamp(std::size_t second) { return 1'000'000'000 + second * 1'000'000; }

 private:
  void keep(Blocks blocks) {
    decodeBlocks(schema(), blocks, [this](const Event& event) {
      std::string key = event.type->name;
      for (const Column& column : event.type->keys)
        key.append(reinterpret_cast<const char*>(event.data) + column.offset,
                   column.count * column.element_size);
      events_[count_[key]++].emplace_back(
          event, std::vector<std::uint8_t>(event.data, event.data + event.type->size));
    });
  }

  std::optional<PluginSource> source_;
  std::map<std::string, std::size_t> count_;
  std::map<std::size_t, std::vector<std::pair<Event, std::vector<std::uint8_t>>>> events_;
};

TEST(Top, NamesTheCongestedPlaneWithinThreeSeconds) {
  const struct {
    const char* device;
    const char* plane;
    std::size_t onset;  // second; the congestion lasts for ten
  } rows[] = {{"rdma0", "plane 1", 2}, {"rdma1", "plane 2", 9}, {"rdma2", "plane 0", 16}};
  Played played(27);
  const Projection projection(played.schema());
  Figures figures(projection, {}, 1'000'000);
  SeriesTable series;
  HealthWatch health(10'000'000);
  ModelCollector collector(figures);
  std::map<std::string, std::map<std::size_t, std::string>> in_windows;  // by device and second
  Windows windows(figures, 1'000'000,
                  {[](const SeriesWindow&) {},
                   [&](const DeviceWindow& one) {
                     for (const Comparison& field : one.fields)
                       if (field.field == "ecn_marked" && field.stands_out)
                         in_windows[one.device][(one.begin_usec - Played::stamp(0)) / 1'000'000] =
                             headingOf(*field.planes[field.worst]);
                   }});
  for (std::size_t second = 0; second <= 26; ++second) {
    played.play(second, [&](const Event& event) {
      const Series& one = series.of(event);
      figures.sample(event, one);
      windows.sample(event, one);
      collector.sample(event, one);
      health.sample(one.device, event.timestamp_usec);
    });
    RunStatus status;
    status.now_usec = Played::stamp(second) + 500'000;
    health.update({}, status.now_usec);
    status.health = &health;
    collector.update(status);
    for (const auto& row : rows) {
      SCOPED_TRACE(testing::Message() << row.device << " at " << second << " s");
      const auto worst =
          worstPlane(collector.model(), *collector.model().device(row.device), std::nullopt);
      EXPECT_TRUE(second > row.onset || !worst);
      if (second < row.onset + 3 || second >= row.onset + 9) continue;
      ASSERT_TRUE(worst);
      EXPECT_EQ(headingOf(worst->plane()), row.plane);
      const Frame frame = drawFrame(collector.model(), View(), Symbols(SymbolSet::plain), {80, 24});
      EXPECT_THAT(textOf(frame), ContainsRegex(std::string(row.device) + ".*" + row.plane));
    }
  }
  windows.complete(UINT64_MAX);
  for (const auto& row : rows)
    for (std::size_t second = row.onset + 2; second < row.onset + 9; ++second)
      EXPECT_EQ(in_windows[row.device][second], row.plane) << row.device << " at " << second;
}

// Sixteen adapters with four planes. The fourth fails, and plane 2 of the seventh stands out.
class Cluster {
 public:
  Cluster() {
    type_.keys.resize(2);
    type_.keys[1].name = "plane";
    for (std::size_t i = 0; i < 64; ++i) {
      planes_[i].type = &type_;
      planes_[i].keys = {std::to_string(i % 4)};
    }
    for (std::size_t i = 0; i < 16; ++i) model.devices.push_back(device(i));
    DeviceHealth& health = model.devices[3].health;
    health.state = DeviceState::failing;
    health.counts.refused = health.counts.failed = 12;
    health.counts.last_failure = "LINK_ON_FIRE";
    model.names = {"marks", "bytes", "idle"};
    model.ranking = {0, 1, 2};
    model.now_usec = 9'000'000;
    model.notes = {"a note"};
  }

  ScreenModel model;

 private:
  enum : std::size_t { kMarks, kBytes, kIdle };

  DeviceModel device(std::size_t number) {
    DeviceModel device;
    device.name = "rdma" + std::to_string(number);
    device.health.state = DeviceState::sampling;
    for (const std::size_t field_number : {kMarks, kBytes, kIdle}) {
      FieldModel& field = device.fields.emplace_back();
      field.number = field_number;
      device.place_of.emplace_back(field_number);
      Comparison comparison;
      for (std::size_t plane = 0; plane < 4; ++plane) {
        CellModel cell;
        cell.is_plane = true;
        cell.reading.kind = FieldKind::counter;
        cell.reading.has_moved = field_number != kIdle;
        cell.reading.per_second = number == 6 && plane == 2 && field_number == kMarks ? 5000 : 100;
        comparison.add({&planes_[number * 4 + plane], FieldKind::counter, *cell.reading.per_second,
                        false, false});
        if (field_number == kBytes && plane == 1) {
          cell.reading.has_unknown = true;
          cell.reading.per_second.reset();
        }
        field.cells.emplace_back(cell);
      }
      comparison.finish();
      field.prominence.since_usec = 1'000'000;
      field.comparison = comparison;
    }
    for (std::size_t plane = 0; plane < 4; ++plane)
      device.series.push_back(&planes_[number * 4 + plane]);
    return device;
  }

  TypeView type_;
  Series planes_[64];
};

TEST(Screen, ShowsSixteenAdaptersAtAnySize) {
  Cluster cluster;
  for (const auto& [columns, rows] : {std::pair(80, 24), {120, 40}, {200, 60}, {61, 10}, {5, 2}}) {
    for (const View::Page page : {View::Page::overview, View::Page::adapter}) {
      for (const SymbolSet set : {SymbolSet::braille, SymbolSet::blocks, SymbolSet::plain}) {
        View view;
        view.page = page;
        const ScreenSize size{static_cast<std::size_t>(columns), static_cast<std::size_t>(rows)};
        const Frame frame = drawFrame(cluster.model, view, Symbols(set), size);
        ASSERT_EQ(frame.lines.size(), size.rows);
        for (const Line& line : frame.lines) EXPECT_LE(line.width(), size.columns) << line.plain();
        if (rows < 24 || page == View::Page::adapter) continue;
        const std::string text = textOf(frame);
        for (const DeviceModel& device : cluster.model.devices)
          EXPECT_THAT(text, ContainsRegex("[> ]" + device.name + " +(sampling|failing)"));
        EXPECT_THAT(text, ContainsRegex("rdma3: failing for .*LINK_ON_FIRE.*\n"
                                        "\n[^\n]*\n>rdma3 +failing +12[^\n]*\n"
                                        " rdma6[^\n]*plane 2[^\n]*3\\.8"));
      }
    }
  }
}

TEST(Screen, MarksWhatIsNotKnownAndFoldsWhatNeverMoved) {
  Cluster cluster;
  View view;
  view.page = View::Page::adapter;
  view.device = "rdma6";
  const std::string text =
      textOf(drawFrame(cluster.model, view, Symbols(SymbolSet::plain), {100, 30}));
  EXPECT_THAT(text, ContainsRegex("rdma6: plane 2 has 94 % of marks, x3.8 of the mean, for 8 s"));
  EXPECT_THAT(text, ContainsRegex("!plane 2 +5000 +94 %"));
  EXPECT_THAT(text, ContainsRegex(" bytes +100 +\\? +100 +100\n never moved: idle\n"));
}

TEST(Symbols, DrawKnownUnknownAndMissingPointsApart) {
  using enum TracePoint::State;
  const TracePoint points[] = {{known, 0},   {known, 100}, {missing, 0},
                               {unknown, 0}, {known, 50},  {known, 200}};
  EXPECT_EQ(Symbols(SymbolSet::plain).trace(points, 100, 7, 1)[0], " _# ?-#");
  EXPECT_EQ(Symbols(SymbolSet::blocks).trace(points, 100, 5, 2),
            (std::vector<std::string>{"█   █", "█ ?██"}));
  EXPECT_EQ(Symbols(SymbolSet::braille).trace(points, 100, 4, 1)[0], " ⣸?⣼");
}

TEST(Keys, ChangeTheView) {
  Cluster cluster;
  View view;
  const auto type = [&](std::initializer_list<KeyPress> keys) {
    for (const KeyPress& key : keys) press(view, key, cluster.model, {.page_rows = 5});
  };
  const auto selected = [&] { return selectedDevice(cluster.model, view)->name; };
  const auto character = [](char one) { return KeyPress{Key::character, one}; };
  EXPECT_EQ(selected(), "rdma3");
  type({{Key::down}, {Key::down}});
  EXPECT_EQ(selected(), "rdma0");
  type({{Key::page_down}, {Key::up}, {Key::home}, {Key::up}});
  EXPECT_EQ(selected(), "rdma3");
  type({character('/'), character('1'), character('q'), {Key::backspace}, character('5')});
  EXPECT_EQ(devicesInOrder(cluster.model, view).size(), 1U);
  EXPECT_EQ(selected(), "rdma15");
  type({{Key::escape}, {Key::end}, {Key::enter}, {Key::down}});
  EXPECT_EQ(view.page, View::Page::adapter);
  EXPECT_EQ(view.row, 1U);
  type({{Key::tab}});
  EXPECT_EQ(selected(), "rdma3");
  type({{Key::escape}, {Key::right}, character('s'), character('r'), character('p')});
  EXPECT_EQ(view.field, 0U);
  EXPECT_EQ(selected(), "rdma3");
  EXPECT_EQ(devicesInOrder(cluster.model, view).front().device->name, "rdma15");
  EXPECT_TRUE(view.paused);
  for (int i = 0; i < 9; ++i) type({character('+')});
  EXPECT_EQ(view.interval, std::chrono::seconds(10));
  for (int i = 0; i < 9; ++i) type({character('-')});
  EXPECT_EQ(view.interval, std::chrono::milliseconds(100));
  type({character('?'), {Key::up}});
  EXPECT_FALSE(view.help);
  type({{Key::click, 0, 2, true}});
  EXPECT_EQ(view.page, View::Page::adapter);
  type({character('q')});
  EXPECT_TRUE(view.ended);
}

}  // namespace
}  // namespace tev::host
