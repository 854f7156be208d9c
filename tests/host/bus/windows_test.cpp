// Windows on their way to a message bus have the figures of the text that --window writes.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/bus/bus_output.h"
#include "host/events/values.h"
#include "host/outputs/delivery.h"
#include "host/outputs/formats.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

// A bus that stores schemas, but no batch.
class Refusing final : public Publisher {
 public:
  std::string schema;
  std::vector<std::uint8_t> blocks;

  std::string name() const override { return "the brokers"; }
  bool send(std::uint64_t number, const OutgoingMessage& message) override {
    IncomingMessage incoming{message.key, {}, message.value};
    for (const auto& [name, value] : message.headers) incoming.headers.emplace_back(name, value);
    const MessageHead head = readHead(incoming);
    std::vector<std::uint8_t> unpacked;
    BlockReader().read(message.value, head.codec, head.size, unpacked);
    blocks.insert(blocks.end(), unpacked.begin(), unpacked.end());
    waiting_.push_back({number, DeliveryReport::Outcome::refused, "full"});
    return true;
  }
  bool sendSchema(std::uint64_t number, const std::string&, const std::string& text) override {
    schema = text;
    waiting_.push_back({number, DeliveryReport::Outcome::stored, ""});
    return true;
  }
  void poll(std::chrono::milliseconds, const Report& report) override {
    for (const DeliveryReport& one : std::exchange(waiting_, {})) report(one);
  }
  bool isConnected() const override { return true; }
  bool hasFailed() const override { return false; }
  void restart() override {}

 private:
  std::vector<DeliveryReport> waiting_;
};

// The figures in the order of a record. Lines lack those that a record has as 0 or "not a number".
std::string figuresOf(const nlohmann::json& line) {
  std::string text = line["samples"].dump() + " " + line["missing"].dump();
  text += line["partial"] ? " 1" : " 0";
  for (const char* const name : {"rx", "rx_rate"}) {
    const auto& field = line["fields"][name];
    const std::map<std::string, int> kinds{{"undecided", 0}, {"counter", 1}, {"gauge", 2}};
    text += fmt::format(" {} {:d}", kinds.at(field["kind"]), field.value("uncertain", false));
    for (const std::string figure :
         {"sum", "unknown", "rate_max", "rate_mean", "min", "max", "mean"}) {
      const double none = figure.ends_with("mean") || figure == "rate_max" ? NAN : 0;
      const auto number = field.value(figure, nlohmann::json());
      text += fmt::format(" {:.9g}", number.is_null() ? none : number.get<double>());
    }
  }
  return text;
}

std::string figuresOf(const Event& event) {
  std::string text;
  for (std::size_t i = event.type->keys.size() + 1; i < event.type->columns.size(); ++i)
    text += fmt::format("{}{:.9g}", text.empty() ? "" : " ",
                        std::abs(numberOf(event.type->columns[i], event.data)));  // not -nan
  return text;
}

// 300 planes, which are more than a block can have. The counter goes up, is reset, and misses a
// sample. The device's own type has nothing to follow.
TEST(WindowsOnABus, HaveTheFiguresOfTheText) {
  test::SampleTypes types;
  types.add("device", {{"name", nullptr, "char", 0, 4}, {"on", nullptr, "bool", 0, 1}}, {"name"});
  types.add("plane",
            {{"name", nullptr, "char", 0, 4},
             {"plane", nullptr, "uint16_t", 0, 1},
             {"rx", "octets", "uint32_t", 0, 1},
             {"rx_rate", nullptr, "uint64_t", 0, 1}},
            {"name", "plane"});
  const SchemaView schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema, {{}, {}, {"d0"}});
  Figures figures(projection, {{"rx"}, {}}, 1000);
  const test::TempTree tree;
  OutputFile file(tree.path("out"));
  const auto text = findOutputFormat("jsonl")->make({projection, figures, file, {}, false, 10'000});
  auto publisher = std::make_unique<Refusing>();
  const Refusing& sent = *publisher;
  BusOutput bus({"node", 1 << 20, {}}, std::move(publisher), {}, schema,
                std::make_unique<WindowEvents>(figures, 10'000));
  Delivery delivery(schema, {&bus, text.get()}, figures, std::nullopt, 0);
  delivery.begin();
  RunStatus status;
  for (std::uint32_t ms = 5; ms < 40; ++ms) {
    if (ms == 17) continue;
    const std::uint32_t rx = (ms < 14 ? 1'000'000'000 : 100) + ms * ms * 1000;
    test::Bytes bytes;
    for (const char* const device : {"d0", "d1"})
      for (std::uint16_t i = 0; i < 300; ++i) {
        bytes.block(ms * 1000, 0, 1, 1).text(device, 4).add(i);
        bytes.add(rx + i).add(std::uint64_t{ms} * i % 7);
      }
    delivery.take(bytes);
    status.now_usec = ms == 39 ? 1'025'000 : ms * 1000;  // the first window is complete
    delivery.update(status);
  }
  delivery.end(status);

  std::map<std::string, std::string> expected, found;
  for (const std::string& one : test::linesOf(test::readAll(tree.path("out"))))
    if (const auto line = nlohmann::json::parse(one); line["type"] == "window")
      expected[line["begin"].dump() + " " + line["plane"].get<std::string>()] = figuresOf(line);
  const SchemaView records = SchemaView::fromJson(std::vector<std::string>{sent.schema});
  decodeBlocks(records, sent.blocks, [&](const Event& event) {
    EXPECT_EQ(textOf(event.type->keys[0], event.data), "d0");
    std::string key = fmt::format("{} ", event.timestamp_usec);
    appendPlain(key, event.type->keys[1], event.data);
    EXPECT_TRUE(found.emplace(key, figuresOf(event)).second) << key;
  });
  EXPECT_EQ(expected.size(), 1200U);
  EXPECT_EQ(found, expected);
  EXPECT_EQ(records.types().at(0).columns[22].name, "rx_rate_max_2");

  std::vector<DeviceCounts> counts{{"d0"}};
  bus.addCounts(counts);
  EXPECT_EQ(counts[0].undelivered, 34U);  // samples of a plane
  EXPECT_EQ(bus.undeliveredEvents(), 1200U);
}

}  // namespace
}  // namespace tev::host
