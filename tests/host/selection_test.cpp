#include "host/selection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/errors.h"
#include "host/host_log.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"
#include "tests/support/captured_log.h"

namespace tev::host {
namespace {

using test::HostProcess;
using test::Result;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::ThrowsMessage;

class SelectionTest : public testing::Test {
 protected:
  SelectionTest() {
    HostLog::instance().beginSetUp(TEV_LEVEL_ERROR, false);
    HostLog::instance().endSetUp([](const std::string&) { return true; });
    types_.add("port",
               {{"name", nullptr, "char", 0, 8},
                {"rx_bytes", nullptr, "uint32_t", 0, 1},
                {"tx_bytes", nullptr, "uint32_t", 0, 1}},
               {"name"});
    types_.add("lane", {{"lane", nullptr, "uint8_t", 0, 1}, {"errors", nullptr, "uint64_t", 0, 1}},
               {"lane"});
  }

  // The columns that two sets leave of each wanted type.
  std::string selected(const char* field_set, const char* counter_set) {
    SchemaView schema(*types_);
    SelectionOptions options;
    if (field_set) options.field_set = tree_.write("a.fset", field_set);
    if (counter_set) options.counter_set = tree_.write("a.cset", counter_set);
    select(schema, options);
    std::string columns;
    for (const TypeView& type : schema.types()) {
      EXPECT_EQ(type.keys.size(), 1u) << "series are told apart all the same";
      EXPECT_EQ(type.wanted, !type.columns.empty());
      if (type.wanted) columns += (columns.empty() ? "" : " | ") + type.name + ":";
      for (const Column& column : type.columns) columns += " " + column.name;
    }
    return columns;
  }

  const test::CapturedLog restored_at_the_end_;
  test::SampleTypes types_;
  test::TempTree tree_;
};

TEST_F(SelectionTest, LeavesWhatTheSetsWantUnderNamesOfTheirOwn) {
  const struct {
    const char* field_set;
    const char* counter_set;
    const char* columns;
  } rows[] = {
      {"[port]\n", nullptr, "port: name rx_bytes tx_bytes"},
      {"[port]\n^rx\n[default]\nerr\n", nullptr, "port: rx_bytes | lane: errors"},
      // Keys are no counters: of them alone nothing is written.
      {nullptr, "_bytes$\n", "port: name rx_bytes tx_bytes"},
      {"[port]\nbytes\n[lane]\n", "^rx\n", "port: rx_bytes"},
      {nullptr, "^ = name\n", "port: name name_2 name_3 | lane: lane name"},
      {nullptr, "errors = type\nrx_bytes = \xff\n", "port: name \\xff | lane: lane type_2"},
  };
  for (const auto& row : rows) EXPECT_EQ(selected(row.field_set, row.counter_set), row.columns);
}

TEST_F(SelectionTest, RefusesSetsWithTheNamesThatThereAre) {
  constexpr auto kTypes = "port: name, rx_bytes, tx_bytes\n  lane: lane, errors";
  constexpr auto kCounters = "The counters are: rx_bytes, tx_bytes, errors";
  const struct {
    const char* field_set;
    const char* counter_set;
    const char* reason;
    const char* names;
  } rows[] = {
      {"# nothing\n", nullptr, "no patterns found", kTypes},
      {"[port]\nnix\n", nullptr, "nothing in it matches", kTypes},
      {nullptr, "", "no patterns found", kCounters},
      {nullptr, "rx\n", "nothing in it matches", kCounters},
      {"[port]\n^rx\n", "tx_bytes\n", "nothing in it matches", "The counters are: rx_bytes"}};
  for (const auto& row : rows)
    EXPECT_THAT([&] { selected(row.field_set, row.counter_set); },
                ThrowsMessage<UsageError>(AllOf(HasSubstr(tree_.path("a.")), HasSubstr(row.reason),
                                                HasSubstr(row.names))));
  SchemaView schema(*types_);
  for (const std::string path : {"/nowhere", "/tmp", ""})
    EXPECT_THAT([&] { select(schema, {.field_set = {}, .counter_set = path, .filter = ""}); },
                ThrowsMessage<UsageError>(AllOf(HasSubstr("--cset " + (path.empty() ? "''" : path)),
                                                HasSubstr(kCounters))));
}

TEST_F(SelectionTest, FiltersDevices) {
  const DeviceFilter filter("eth-eth1");
  filter.expectOneOf({});
  filter.expectOneOf({"lo", "Eth0"});
  const std::vector<std::string> others{"lo", "eth1"};
  EXPECT_THAT([&] { filter.expectOneOf(others); },
              ThrowsMessage<UsageError>(HasSubstr("The devices are: lo, eth1")));
  EXPECT_THROW(DeviceFilter(std::string(200, 'x')), UsageError);
}

Result runSimulated(const std::string& words) {
  return HostProcess(test::wordsOf("run --simulate --update=10 --samples=3 --option "
                                   "multipath-sample-interval-usec=1000 " +
                                   words))
      .finish();
}

// The examples, with the simulated adapters that they are for.
TEST(SelectionOfARun, WritesTheExamplesColumnsUnderTheirAliases) {
  const std::string sets =
      "--fset=" EXAMPLES "/congestion.fset --cset=" EXAMPLES "/congestion.cset";
  const Result result = runSimulated(sets + " --filter=-rdma1 --format=csv");
  ASSERT_EQ(result.exit, 0) << result.err;
  ASSERT_EQ(result.out.size(), 1u + 3 * (1 + 4 + 1 + 2));
  EXPECT_EQ(result.out[0],
            "timestamp,type,device_name,congestion_notifications,ecn_marks,path_switches,plane,"
            "round_trip_usec,rate_mbps");
  EXPECT_THAT(result.out, testing::Each(Not(HasSubstr("rdma1"))));
  EXPECT_THAT(result.err, Not(HasSubstr("rdma1")));
}

TEST(SelectionOfARun, KeepsValuesUnderTheirAliases) {
  test::TempTree files;
  const std::string scenario = files.write("scenario.json", R"({"devices": [{"ibdev_name": "a",
      "slots": [{"counters": [{"text": "rx, r", "law": {"type": "constant", "value": 12}},
                              {"text": "tx, t", "law": {"type": "constant", "value": 34}}]}]}]})");
  const std::string swap = files.write("swap.cset", "rx = tx\ntx = received\n");
  const Result result = runSimulated("--simulate=" + scenario + " --cset=" + swap);
  ASSERT_EQ(result.exit, 0) << result.err;
  EXPECT_THAT(result.out.at(0), HasSubstr(R"("tx":12,"received":34)"));
}

TEST(SelectionOfARun, EndsWhenNothingIsLeft) {
  test::TempTree tree;
  const std::string kept = tree.write("kept", "keep");
  const std::string types = tree.write("types", "[multipath_event_device_0]\n");  // rdma2's alone
  for (const auto& [words, reason] :
       {std::pair{std::string("--filter=nix"), "The devices are: rdma0, rdma1, rdma2"},
        {"--filter=rdma0 --fset=" + types, "The devices are: rdma2"},
        {"--output=" + kept + " --fset=" + tree.path("none"),
         "The types, and their fields, are"}}) {
    const Result result = runSimulated(words);
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.err, HasSubstr(reason));
  }
  EXPECT_EQ(test::readAll(kept), "keep") << "an earlier recording survives a mistake";
}

}  // namespace
}  // namespace tev::host
