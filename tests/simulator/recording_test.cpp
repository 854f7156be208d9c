// Capture files as scenarios.
#include <gmock/gmock.h>

#include "host/capture/capture_file.h"
#include "host/events/schema_view.h"
#include "simulator/handles.h"
#include "simulator/recorded_scenario.h"
#include "tests/host/sample_types.h"
#include "tests/support/temp_tree.h"

namespace simulator {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using tev::test::Bytes;

constexpr std::uint64_t kReal = 1'700'000'000'000'000;  // of the first sample
constexpr std::uint64_t kHour = 3'600'000'000;

void addTypes(tev::test::SampleTypes& types) {
  types.add("device", {{"name", nullptr, "char", 0, 4}, {"rx", "received", "uint32_t", 0, 1}},
            {"name"});
  types.add("plane",
            {{"name", nullptr, "char", 0, 4},
             {"plane", nullptr, "uint8_t", 0, 1},
             {"tx", "tx", "uint32_t", 0, 1}},
            {"name", "plane"});
}

// Three updates with an interval of 1 ms: a failure in the second one, which ends in the middle of
// its last sample; before the third one the clock is set forward.
std::string record(const std::string& path, bool clears) {
  tev::test::SampleTypes types;
  addTypes(types);
  const std::string schema = tev::host::SchemaView::fromTypeSystem(*types).schemas()[0].text;
  tev::host::CaptureHead head;
  head.schemas = {schema};
  head.interval_usec = 1000;
  head.clear_on_read = clears;
  head.start = {kReal * 1000, 77'000};
  tev::host::CaptureFile file(path, head);
  Bytes events;
  const auto add = [&](std::uint64_t usec, std::uint32_t value, bool of_device, bool of_planes) {
    if (of_device) events.block(kReal + usec, 0, 0, 1).text("d\xff", 4).add(value);
    for (std::uint8_t plane = 0; of_planes && plane < 2; ++plane)
      events.block(kReal + usec, 0, 1, 1).text("d\xff", 4).u8({plane}).add(10 * value + plane);
  };
  const auto update = [&](std::uint64_t real_usec, std::uint64_t usec) {
    file.writeEvents(events, kReal, kReal + kHour);
    file.writeClocks({(kReal + real_usec) * 1000, 77'000 + usec * 1000});
    events.clear();
  };
  for (std::uint32_t i = 0; i < 3; ++i) add(i * 1000, i + 1, true, true);
  update(2100, 2100);
  add(5000, 6, true, true);
  add(6000, 7, true, false);
  file.writeCounts({{.device = "d\\xff", .refused = 2, .last_failure = "LINK_ON_FIRE"}}, 0);
  update(6100, 6100);
  add(6000, 7, false, true);
  add(kHour + 7000, 8, true, true);
  update(kHour + 7100, 7100);
  file.finish();
  return path;
}

// The value of the device's counter or the name of the status, for each read.
std::vector<std::string> played(const std::string& path, ClockKind clock,
                                const std::vector<std::uint64_t>& elapsed_usec) {
  const Scenario scenario = recordedScenario(path, clock);
  const auto source = scenario.devices.at(0).slots.at(0).make_source();
  std::vector<std::string> results;
  std::uint64_t samples = 0;
  for (const std::uint64_t usec : elapsed_usec) {
    std::uint32_t values[3] = {};
    const vuna_status status = source->read({usec, samples}, values);
    results.push_back(status == kVunaSuccess ? std::to_string(values[0])
                                             : scenario.status_names.at(status));
    if (status != kVunaSuccess) continue;
    EXPECT_EQ(values[1] % 10, values[2] % 10 == 0 ? 9 : values[2] % 10 - 1);
    ++samples;
  }
  return results;
}

TEST(Recording, IsPlayedInItsTime) {
  const tev::test::TempTree tree;
  const std::string path = record(tree.path("a.tevcap"), false);
  const Scenario scenario = recordedScenario(path, ClockKind::real);
  EXPECT_THAT(scenario.notes, ElementsAre());
  const Device& device = scenario.devices.at(0);
  EXPECT_EQ(device.ibdev_name, "d\xff");
  std::vector<std::string> texts;
  for (const Counter& counter : device.slots[0].counters) texts.push_back(counter.text);
  EXPECT_THAT(texts, ElementsAre("rx, received", "tx, tx, plane 0", "tx, tx, plane 1"));

  EXPECT_THAT(played(path, ClockKind::real,
                     {50'000, 50'600, 51'400, 52'300, 53'200, 54'600, 56'000, 57'400, 57'600}),
              ElementsAre("1", "2", "2", "3", "LINK_ON_FIRE", "6", "7", "8", "RECORDING_ENDED"));
  EXPECT_THAT(played(path, ClockKind::samples, {0, 1, 2, 3, 4, 5, 6}),
              ElementsAre("1", "2", "3", "6", "7", "8", "RECORDING_ENDED"));
}

TEST(Recording, OfClearedCountersAddsThemUp) {
  const tev::test::TempTree tree;
  const Scenario scenario = recordedScenario(record(tree.path("a"), true), ClockKind::real);
  SlotReader reader(scenario.devices.at(0).slots.at(0));
  std::vector<std::uint32_t> increases;
  for (const std::uint64_t usec : {0U, 2000U, 2100U, 7000U}) {
    std::uint32_t values[3] = {};
    std::uint32_t count = 0;
    EXPECT_EQ(reader.read({usec, 0}, true, 3, &count, values), kVunaSuccess);
    increases.push_back(values[0]);
  }
  EXPECT_THAT(increases, ElementsAre(1U, 5U, 0U, 21U));
}

TEST(Recording, ThatIsBrokenIsRefusedOrPlayedAsFarAsItIsSound) {
  tev::test::TempTree tree;
  const std::string whole = tev::test::readAll(record(tree.path("a.tevcap"), false));
  std::string damaged = whole;
  damaged[damaged.find("TEVCAP", 8) + 70] ^= 1;  // in the first chunk of events
  const struct {
    std::string bytes;
    const char* text;  // the refusal or the note
    bool is_played;
  } rows[] = {
      {"", "is empty", false},
      {"{}", "not a capture", false},
      {whole.substr(0, 100), "head is damaged", false},
      {whole.substr(0, whole.size() * 3 / 4), "cut off", true},
      {damaged, "damaged and not played", true},
  };
  for (const auto& [bytes, text, is_played] : rows) {
    const std::string path = tree.write("broken.tevcap", bytes);
    try {
      const Scenario scenario = recordedScenario(path, ClockKind::real);
      EXPECT_TRUE(is_played) << text;
      EXPECT_THAT(scenario.notes, ElementsAre(HasSubstr(text)));
    } catch (const ScenarioError& error) {
      EXPECT_FALSE(is_played) << error.what();
      EXPECT_THAT(error.what(), testing::AllOf(HasSubstr("broken.tevcap"), HasSubstr(text)));
    }
  }
}

}  // namespace
}  // namespace simulator
