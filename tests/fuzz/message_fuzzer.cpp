// Input: the first byte, whose bits are listed below; the length of a schema's text in two bytes,
// and this text; then messages. A worker takes all of them and writes what it can.
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "host/fleet/aggregate.h"
#include "host/fleet/parquet_worker.h"
#include "host/fleet/stream_worker.h"
#include "src/data/schema/schema_id.h"
#include "tests/fuzz/fuzz.h"
#include "tests/host/fleet/fake_bus.h"
#include "tests/host/metrics/values.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::host;
using tev::test::check;

// Bits of the first byte.
enum : std::uint8_t {
  kOwnText = 1,  // the text is the schema's; otherwise there is a usual one
  kWrongId = 2,  // the text is published under another id
  kStream = 4,   // lines, tables and captures instead of Parquet
};

// What the first byte of a message says about it.
enum : std::uint8_t {
  kMade,     // the rest is its blocks
  kPacked,   // the same, packed
  kClaimed,  // the rest is said to be packed blocks
  kHeaders,  // the rest is lines: names of headers and values
  kForms,
};

constexpr RangeLimits kLimits{.bytes = 2000, .messages = 6, .seconds = 5000};

// A folder in memory, if there is one.
std::string folder() {
  const char* const memory = "/dev/shm";
  if (access(memory, W_OK) == 0) setenv("TMPDIR", memory, 1);
  static const tev::test::TempTree tree;
  return tree.path("f");
}

std::string publishText(tev::test::FakeBus& bus, std::string text, bool is_wrong) {
  char id[TEV_SCHEMA_ID_STRING_SIZE] = "";
  std::string_view digested = text;
  if (digested.ends_with('\n')) digested.remove_suffix(1);
  if (const auto digest = tev::schema::idOfText(digested))
    tev_schema_id_to_schema_string(&*digest, id);
  if (is_wrong) id[0] = id[0] == '0' ? '1' : '0';
  bus.texts[id] = std::move(text);
  return id;
}

std::string usualSchema(tev::test::FakeBus& bus) {
  tev::test::SampleTypes types;
  types.add("t", {{"device", nullptr, "char", 0, 4}, {"rx", nullptr, "uint32_t", 0, 1}},
            {"device"});
  types.add("p",
            {{"device", nullptr, "char", 0, 4},
             {"plane", nullptr, "uint8_t", 0, 1},
             {"values", nullptr, "double", 0, 3}},
            {"device", "plane"});
  return bus.publish(types);
}

void addHeaders(OutgoingMessage& message, const std::string& lines) {
  message.headers.clear();
  std::size_t at = 0;
  while (at < lines.size()) {
    const std::size_t end = std::min(lines.find('\n', at), lines.size());
    const std::string line = lines.substr(at, end - at);
    const std::size_t middle = std::min(line.find('='), line.size());
    message.headers.emplace_back(line.substr(0, middle),
                                 line.substr(std::min(middle + 1, line.size())));
    if (message.headers.back().first == "tev-source") message.key = message.headers.back().second;
    at = end + 1;
  }
}

// Each message is its form, its source, its run, its first number, its count, the length of the
// rest in two bytes, and the rest.
void addMessages(tev::test::FakeBus& bus, const std::string& id, const std::uint8_t* data,
                 std::size_t size) {
  constexpr std::size_t kDescription = 7;
  MessageWriter writer;
  while (size >= kDescription) {
    const std::size_t length =
        std::min<std::size_t>(data[5] + std::size_t{256} * data[6], size - kDescription);
    const std::vector<std::uint8_t> rest(data + kDescription, data + kDescription + length);
    OutgoingMessage message = writer.write(tev::test::makeBatch(
        {"node " + std::to_string(data[1]), data[2]}, id, data[3], data[4], rest));
    const std::uint8_t form = data[0] % kForms;
    const auto set = [&](std::string_view name, const std::string& value) {
      std::ranges::find(message.headers, name, &std::pair<std::string, std::string>::first)
          ->second = value;
    };
    if (form == kMade || form == kClaimed) message.value = rest;
    if (form == kMade) set("tev-codec", "none");
    if (form == kClaimed) set("tev-codec", "zstd"), set("tev-size", "4096");
    if (form == kHeaders) addHeaders(message, {rest.begin(), rest.end()});
    bus.log.push_back(std::move(message));
    data += kDescription + length;
    size -= kDescription + length;
  }
}

// Rows are where the `done` files say.
void checkFolder(const std::string& path, const FleetCounts& written) {
  FleetCounts counts;
  std::uint64_t rows = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) {
    if (entry.path().extension() != ".done") continue;
    Sequences sequences;
    const RangeRecord record = recordOf(tev::test::readAll(entry.path()), sequences);
    counts += record.counts;
    for (const auto& file : record.files) {
      rows += file.rows;
      check(std::filesystem::is_regular_file(path + "/" + file.name), "the file is there");
    }
  }
  check(counts == written, "the counts are written down");
  check(rows == written.events, "each event has a row");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = folder();
  constexpr std::size_t kBegin = 3;
  if (size < kBegin) return 0;
  const std::uint8_t bits = data[0];
  const std::size_t length =
      std::min<std::size_t>(data[1] + std::size_t{256} * data[2], size - kBegin);
  tev::test::FakeBus bus;
  const std::string text(data + kBegin, data + kBegin + length);
  const std::string id =
      bits & kOwnText ? publishText(bus, text, bits & kWrongId) : usualSchema(bus);
  addMessages(bus, id, data + kBegin + length, size - kBegin - length);
  const std::size_t sent = bus.log.size();
  for (std::uint64_t i = 0; i <= kLimits.messages; ++i) bus.log.push_back({"end", {}, {}});

  std::filesystem::remove_all(path);
  SchemaCache schemas(bus, std::chrono::milliseconds(0));
  Intake intake(schemas);
  tev::test::FakeSubscription subscription(bus);
  Aggregate aggregate(std::chrono::seconds(60));
  if (bits & kStream) {
    std::filesystem::create_directories(path);
    for (const auto& sink : {makeJsonlSink(path + "/lines"), makeCsvSink(path + "/tables"),
                             makeCaptureSink(path + "/captures")}) {
      StreamWorker worker(*sink, intake, subscription);
      worker.observe(aggregate);
      subscription.join(worker);
      subscription.position = 0;
      subscription.poll(worker, bus.log.size(), {});
      worker.update();
      check(worker.counts().messages == bus.log.size(), "each message is counted");
    }
  } else {
    RangeFolder folder(path, "t", false);
    ParquetWorker worker(folder, folder.settle(kLimits), intake, subscription,
                         [](auto) { return false; });
    worker.observe(aggregate);
    subscription.join(worker);
    subscription.poll(worker, bus.log.size(), {});
    checkFolder(path, worker.written());
    check(worker.written().messages >= sent, "the last range has ended");
  }
  tev::test::valuesOf(aggregate.families());  // throws when a metric is there twice
  return 0;
}
