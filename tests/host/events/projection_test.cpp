#include "host/events/projection.h"

#include <gmock/gmock.h>

#include "host/support/errors.h"
#include "host/support/log.h"
#include "tests/host/sample_types.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

class ProjectionTest : public testing::Test {
 protected:
  ProjectionTest() {
    Log::instance().beginSetUp(TEV_LEVEL_ERROR, false);
    Log::instance().endSetUp(true);
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
    const SchemaView schema = SchemaView::fromTypeSystem(*types_);
    SelectionOptions options;
    if (field_set) options.field_set = tree_.write("a.fset", field_set);
    if (counter_set) options.counter_set = tree_.write("a.cset", counter_set);
    const Projection projection(schema, options);
    std::string columns;
    for (const TypeView& type : schema.types()) {
      EXPECT_EQ(projection.takes(type), !projection.columns(type).empty());
      if (projection.takes(type)) columns += (columns.empty() ? "" : " | ") + type.name + ":";
      for (const Column& column : projection.columns(type)) columns += " " + column.name;
    }
    return columns;
  }

  const test::CapturedLog restored_at_the_end_;
  test::SampleTypes types_;
  test::TempTree tree_;
};

TEST_F(ProjectionTest, LeavesWhatTheSetsWantUnderNamesOfTheirOwn) {
  const struct {
    const char* field_set;
    const char* counter_set;
    const char* columns;
  } rows[] = {
      {"[port]\n^rx\n[default]\nerr\n", nullptr, "port: name rx_bytes | lane: lane errors"},
      // Keys are always written. They are not counters. A type with only key fields is not written.
      {nullptr, "_bytes$\n", "port: name rx_bytes tx_bytes"},
      // A column of a table of all types would else hold a key and a counter.
      {nullptr, "^ = name\n", "port: name name_2 name_3 | lane: lane name_2"},
      {nullptr, "errors = type\nrx_bytes = \xff\n", "port: name \\xff | lane: lane type_2"},
  };
  for (const auto& row : rows) EXPECT_EQ(selected(row.field_set, row.counter_set), row.columns);
}

TEST_F(ProjectionTest, RefusesSetsWithTheNamesThatThereAre) {
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
      {nullptr, "rx\n", "nothing in it matches", kCounters},
      {"[port]\n^rx\n", "tx_bytes\n", "nothing in it matches", "The counters are: rx_bytes"}};
  for (const auto& row : rows)
    EXPECT_THAT([&] { selected(row.field_set, row.counter_set); },
                ThrowsMessage<UsageError>(AllOf(HasSubstr(tree_.path("a.")), HasSubstr(row.reason),
                                                HasSubstr(row.names))));
  const SchemaView schema = SchemaView::fromTypeSystem(*types_);
  EXPECT_THAT([&] { Projection(schema, {.field_set = {}, .counter_set = "", .filters = {}}); },
              ThrowsMessage<UsageError>(AllOf(HasSubstr("--cset ''"), HasSubstr(kCounters))));
}

}  // namespace
}  // namespace tev::host
