#include "host/selection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "host/errors.h"
#include "host/host_log.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using test::HostProcess;
using test::linesOf;
using testing::AllOf;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;

using Columns = std::map<std::string, std::vector<std::string>>;  // by wanted type

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

  SelectionOptions options(const char* field_set, const char* counter_set) {
    SelectionOptions options;
    if (field_set) options.field_set = tree_.write("a.fset", field_set);
    if (counter_set) options.counter_set = tree_.write("a.cset", counter_set);
    return options;
  }

  Columns selected(const char* field_set, const char* counter_set) {
    SchemaView schema(*types_);
    select(schema, options(field_set, counter_set));
    Columns columns;
    for (const TypeView& type : schema.types()) {
      EXPECT_EQ(type.keys.size(), 1u) << "series are told apart all the same";
      EXPECT_EQ(type.wanted, !type.columns.empty());
      for (const Column& column : type.columns) columns[type.name].push_back(column.name);
    }
    return columns;
  }

  const test::CapturedLog restored_at_the_end_;
  test::SampleTypes types_;
  test::TempTree tree_;
};

TEST_F(SelectionTest, LeavesWhatTheSetsWant) {
  EXPECT_EQ(selected("[port]\n", nullptr), (Columns{{"port", {"name", "rx_bytes", "tx_bytes"}}}));
  EXPECT_EQ(selected("[port]\n^rx\n[default]\nerr\n", nullptr),
            (Columns{{"port", {"rx_bytes"}}, {"lane", {"errors"}}}));
  EXPECT_EQ(selected(nullptr, "_bytes$\n"), (Columns{{"port", {"name", "rx_bytes", "tx_bytes"}}}))
      << "keys are no counters: of them alone nothing is written";
  EXPECT_EQ(selected("[port]\nbytes\n[lane]\n", "^rx\n"), (Columns{{"port", {"rx_bytes"}}}));
}

TEST_F(SelectionTest, GivesEveryColumnANameOfItsOwn) {
  EXPECT_EQ(selected(nullptr, "^ = name\n"),
            (Columns{{"port", {"name", "name_2", "name_3"}}, {"lane", {"lane", "name"}}}));
  EXPECT_EQ(selected(nullptr, "errors = type\nrx_bytes = \xff\n"),
            (Columns{{"port", {"name", "\\xff"}}, {"lane", {"lane", "type_2"}}}));
}

TEST_F(SelectionTest, RefusesSetsWithTheNamesThatThereAre) {
  struct Case {
    const char* field_set;
    const char* counter_set;
    const char* reason;
    const char* names;
  };
  constexpr auto kTypes = "port: name, rx_bytes, tx_bytes\n  lane: lane, errors";
  constexpr auto kCounters = "The counters are: rx_bytes, tx_bytes, errors";
  for (const Case& one :
       {Case{"# nothing\n", nullptr, "no patterns found", kTypes},
        Case{"[ports]\n", nullptr, "nothing in it matches", kTypes},
        Case{"[port]\nnix\n", nullptr, "nothing in it matches", kTypes},
        Case{nullptr, "", "no patterns found", kCounters},
        Case{nullptr, "rx\n", "nothing in it matches", kCounters},
        Case{"[port]\n^rx\n", "tx_bytes\n", "nothing in it matches", "The counters are: rx_bytes"}})
    EXPECT_THAT([&] { selected(one.field_set, one.counter_set); },
                testing::ThrowsMessage<UsageError>(AllOf(
                    HasSubstr(tree_.path("a.")), HasSubstr(one.reason), HasSubstr(one.names))));

  SchemaView schema(*types_);
  for (const std::string& path : {std::string("/nowhere"), tree_.path(""), std::string()})
    EXPECT_THAT([&] { select(schema, {.field_set = {}, .counter_set = path, .filter = ""}); },
                testing::ThrowsMessage<UsageError>(AllOf(
                    HasSubstr("--cset " + (path.empty() ? "''" : path)), HasSubstr(kCounters))));
}

TEST_F(SelectionTest, FiltersDevices) {
  const DeviceFilter filter("eth-eth1");
  EXPECT_TRUE(filter.passes("Eth0"));
  EXPECT_FALSE(filter.passes("eth1"));
  EXPECT_TRUE(DeviceFilter("").passes("anything"));
  filter.expectOneOf({});
  filter.expectOneOf({"lo", "eth0"});
  EXPECT_THAT(
      [&] {
        filter.expectOneOf({"lo", "eth1"});
      },
      testing::ThrowsMessage<UsageError>(HasSubstr("The devices are: lo, eth1")));
  EXPECT_THROW(DeviceFilter(std::string(200, 'x')), UsageError);
}

// The examples, with the simulated adapters that they are for.
TEST(SelectionOfARun, WritesTheExamplesColumnsUnderTheirAliases) {
  const std::string examples = EXAMPLES "/congestion.";
  HostProcess process({"run", "--simulate", "--fset", examples + "fset", "--cset",
                       examples + "cset", "--filter=-rdma1", "--format=csv", "--samples=3",
                       "--update=10", "--option", "multipath-sample-interval-usec=1000"});
  ASSERT_EQ(process.wait(), 0) << process.err();
  auto lines = linesOf(process.out());
  ASSERT_THAT(lines, SizeIs(1 + 3 * (1 + 4 + 1 + 2)));
  EXPECT_EQ(lines[0],
            "timestamp,type,device_name,congestion_notifications,ecn_marks,path_switches,plane,"
            "round_trip_usec,rate_mbps");
  lines.erase(lines.begin());
  EXPECT_THAT(lines, Each(testing::Not(HasSubstr("rdma1"))));
  EXPECT_THAT(process.err(), testing::Not(HasSubstr("rdma1")));
}

TEST(SelectionOfARun, KeepsValuesUnderTheirAliases) {
  for (const std::string format : {"csv", "jsonl", "table"}) {
    test::TempTree files;
    HostProcess process(
        {"run", "--simulate",
         files.write("scenario.json",
                     R"({"clock": "samples", "devices": [{"ibdev_name": "a", "slots":
             [{"counters": [{"text": "rx, r", "law": {"type": "constant", "value": 12}},
                            {"text": "tx, t", "law": {"type": "constant", "value": 34}}]}]}]})"),
         "--cset", files.write("swap.cset", "rx = tx\ntx = received\n"), "--samples=1",
         "--update=10", "--option", "multipath-sample-interval-usec=1000", "--format", format});
    ASSERT_EQ(process.wait(), 0) << process.err();
    const std::string out = process.out();
    if (format == "csv") {
      EXPECT_THAT(linesOf(out)[0], HasSubstr("device_name,tx,received"));
      EXPECT_THAT(linesOf(out)[1], HasSubstr(",a,12,34"));
    } else if (format == "jsonl") {
      EXPECT_THAT(out, HasSubstr(R"("tx":12,"received":34)"));
    } else {
      EXPECT_THAT(out,
                  AllOf(testing::ContainsRegex("tx +12"), testing::ContainsRegex("received +34")));
    }
  }
}

TEST(SelectionOfARun, EndsWhenNothingIsLeft) {
  test::TempTree tree;
  const std::string kept = tree.write("kept", "keep");
  const std::string types = tree.write("types", "[multipath_event_device_0]\n");  // rdma2's alone
  struct Case {
    std::vector<std::string> words;
    const char* reason;
  };
  for (const Case& one : {Case{{"--filter", "nix"}, "The devices are: rdma0, rdma1, rdma2"},
                          Case{{"--fset", types, "--filter", "rdma0"}, "The devices are: rdma2"},
                          Case{{"--fset", tree.path("none"), "--output", kept},
                               "The types, and their fields, are"}}) {
    std::vector<std::string> words{"run",          "--simulate",
                                   "--format=csv", "--update=10",
                                   "--option",     "multipath-sample-interval-usec=1000"};
    words.insert(words.end(), one.words.begin(), one.words.end());
    HostProcess process(words);
    EXPECT_EQ(process.wait(), 2);
    EXPECT_THAT(process.err(), HasSubstr(one.reason));
  }
  EXPECT_EQ(test::readFile(kept), "keep") << "an earlier recording survives a mistake";
}

}  // namespace
}  // namespace tev::host
