#include "tev/sources.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/temp_tree.h"

namespace {

using tev::test::CapturedLog;
using tev::test::Environment;
using tev::test::LogLine;
using tev::test::TempTree;

struct DestroySource {
  void operator()(tev_source_t* source) const { tev_destroy_source(source); }
};
struct DestroyArray {
  void operator()(tev_source_array_t* array) const { tev_destroy_source_array(array); }
};
using SourcePtr = std::unique_ptr<tev_source_t, DestroySource>;
using ArrayPtr = std::unique_ptr<tev_source_array_t, DestroyArray>;
using Ids = std::vector<std::string>;

Ids idsOf(const ArrayPtr& array) {
  Ids ids;
  for (std::uint32_t i = 0; array && i < array->count; ++i) {
    ids.emplace_back(array->sources[i]->id);
    EXPECT_STREQ(array->sources[i]->tag, "");
  }
  return ids;
}

class SourcesTest : public testing::Test {
 protected:
  SourcesTest() {
    environment.unset({"TEV_SOURCE_ID", "TEV_HOST_NAME"});
    environment.set("TEV_SOURCE_ID", "host");
  }

  Environment environment;
  TempTree tree;
};

TEST_F(SourcesTest, TextsAreCutToTheirRoom) {
  const SourcePtr source(
      tev_create_source(std::string(64, 'i').c_str(), std::string(16, 't').c_str()));
  EXPECT_EQ(std::string(source->id), std::string(63, 'i'));
  EXPECT_EQ(std::string(source->tag), std::string(15, 't'));
  const SourcePtr hollow(tev_create_source(nullptr, nullptr));
  EXPECT_STREQ(hollow->id, "");
  EXPECT_STREQ(hollow->tag, "");
}

TEST_F(SourcesTest, DefaultIdentity) {
  char name[256] = "";
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  const std::string machine = std::string(name).substr(0, std::string(name).find('.'));
  using Text = std::optional<std::string>;
  struct Row {
    const char* what;
    Text source_id, host_name;
    std::string id;
  };
  const Row rows[] = {
      {"source id first", "unit.a", "named", "unit.a"},
      {"an empty one is one", "", "named", ""},
      {"then the host variable, whole", {}, "named.domain", "named.domain"},
      {"then the machine", {}, {}, machine.substr(0, 63)},
      {"cut", std::string(70, 'x'), {}, std::string(63, 'x')},
  };
  for (const Row& row : rows) {
    environment.set("TEV_SOURCE_ID", row.source_id);
    environment.set("TEV_HOST_NAME", row.host_name);
    const ArrayPtr array(tev_create_default_source_array("multipath"));
    ASSERT_TRUE(array) << row.what;
    ASSERT_EQ(array->count, 1u);
    EXPECT_EQ(array->sources[0]->id, row.id) << row.what;
    EXPECT_STREQ(array->sources[0]->tag, "multipath");
  }
}

TEST_F(SourcesTest, Ranges) {
  const std::string long_prefix(70, 'p');
  struct Row {
    std::string text;
    Ids ids;
  };
  const Row rows[] = {
      {"3", {"host_1", "host_2", "host_3"}},
      {"1", {"host_1"}},
      {"002", {"host_1", "host_2"}},
      {"2-4", {"host_2", "host_3", "host_4"}},
      {"0-1", {"host_0", "host_1"}},
      {"7-7", {"host_7"}},
      {"2147483647-2147483647", {"host_2147483647"}},
      {"node[2-4]", {"node_2", "node_3", "node_4"}},
      {"[5-5]", {"_5"}},
      {"a%sb[1-1]", {"a%sb_1"}},
      {long_prefix.substr(0, 60) + "[10-11]",
       {long_prefix.substr(0, 60) + "_10", long_prefix.substr(0, 60) + "_11"}},
      {long_prefix + "[1-1]", {long_prefix.substr(0, 63)}},
  };
  for (const Row& row : rows)
    EXPECT_EQ(idsOf(ArrayPtr(tev_create_source_array_from_string(row.text.c_str()))), row.ids)
        << row.text;
}

TEST_F(SourcesTest, InvalidRanges) {
  for (const char* text : {"",
                           "0",
                           "-",
                           "-3",
                           "3-",
                           "5-3",
                           "x",
                           "3x",
                           " 3",
                           "3 ",
                           "+3",
                           "0x3",
                           "2--4",
                           "1-2-3",
                           "a-b",
                           "2147483648",
                           "1-2147483648",
                           "99999999999999999999-99999999999999999999",
                           "node[2-4",
                           "node2-4]",
                           "no-de[2-4]",
                           "node[2]-4",
                           "node]2-4[",
                           "node[-4]",
                           "node[2-]",
                           "node[4-2]",
                           "node[3]",
                           "%s%n"}) {
    const CapturedLog log;
    EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_string(text))) << text;
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{3, std::string("[source] Invalid source format: ") + text}}));
  }
  EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_string(nullptr)));
  EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_input(nullptr)));
}

TEST_F(SourcesTest, ArrayHoldsAtMost65534) {
  const ArrayPtr array(tev_create_source_array());
  array->count = 65533;  // filled here, as that many appends take their time under a sanitizer
  array->sources = static_cast<tev_source_t**>(std::calloc(array->count, sizeof(tev_source_t*)));
  ASSERT_NE(array->sources, nullptr);

  tev_source_t* const last = tev_create_source("last", "");
  ASSERT_TRUE(tev_source_array_append(array.get(), last));
  const SourcePtr one_more(tev_create_source("more", ""));
  EXPECT_FALSE(tev_source_array_append(array.get(), one_more.get()));
  EXPECT_EQ(array->count, 65534u);
  EXPECT_EQ(tev_source_array_find_source(array.get(), last), 65533);
  EXPECT_EQ(tev_source_array_find_source(array.get(), one_more.get()), TEV_SOURCE_NOT_FOUND);
}

TEST_F(SourcesTest, RangeBeyondTheLargestArrayIsNone) {
  for (const char* text : {"65535", "0-65534", "2147483647", "n[0-2147483647]"})
    EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_string(text))) << text;
}

TEST_F(SourcesTest, FindsTheObjectNotItsEqual) {
  const ArrayPtr array(tev_create_source_array());
  tev_source_t* const source = tev_create_source("id", "tag");
  EXPECT_EQ(tev_source_array_find_source(array.get(), source), TEV_SOURCE_NOT_FOUND);
  ASSERT_TRUE(tev_source_array_append(array.get(), source));
  tev_source_t equal{};
  EXPECT_EQ(tev_source_copy(&equal, source), &equal);
  EXPECT_EQ(tev_source_compare(&equal, source), 0);
  EXPECT_EQ(tev_source_array_find_source(array.get(), &equal), TEV_SOURCE_NOT_FOUND);
  EXPECT_EQ(tev_source_array_find_source(array.get(), source), 0);
  EXPECT_FALSE(tev_source_array_append(array.get(), nullptr));
  EXPECT_EQ(array->count, 1u);
}

TEST_F(SourcesTest, OrderIsByIdThenTag) {
  const SourcePtr sorted[] = {SourcePtr(tev_create_source("a", "z")),
                              SourcePtr(tev_create_source("b", "x")),
                              SourcePtr(tev_create_source("b", "y"))};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      const int order = tev_source_compare(sorted[i].get(), sorted[j].get());
      EXPECT_EQ(order < 0, i < j);
      EXPECT_EQ(order > 0, i > j);
    }
}

TEST_F(SourcesTest, Texts) {
  const SourcePtr source(tev_create_source("node", "tag"));
  char* const id = tev_source_string(source.get());
  EXPECT_STREQ(id, "node");
  std::free(id);

  char buffer[10] = "untouched";
  {
    const CapturedLog log;
    EXPECT_FALSE(tev_source_full_string(source.get(), buffer, 8));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{7, "[source] buffer too small for source node:tag (got 8)"}}));
  }
  EXPECT_STREQ(buffer, "untouched");
  EXPECT_TRUE(tev_source_full_string(source.get(), buffer, 9));
  EXPECT_STREQ(buffer, "node:tag");
}

// A record from elsewhere need not end its texts.
TEST_F(SourcesTest, TextsThatFillTheirRoom) {
  tev_source_t full;
  std::fill(std::begin(full.id), std::end(full.id), 'i');
  std::fill(std::begin(full.tag), std::end(full.tag), 't');
  char* const id = tev_source_string(&full);
  EXPECT_EQ(id, std::string(64, 'i'));
  std::free(id);
  char buffer[82];
  EXPECT_FALSE(tev_source_full_string(&full, buffer, 81));
  ASSERT_TRUE(tev_source_full_string(&full, buffer, 82));
  EXPECT_EQ(buffer, std::string(64, 'i') + ':' + std::string(16, 't'));
}

TEST_F(SourcesTest, LogListsIds) {
  const ArrayPtr array(tev_create_source_array_from_string("x[1-2]"));
  const CapturedLog log;
  EXPECT_EQ(tev_source_array_log(array.get(), "sources"), 2u);
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{7, "sources[0] = x_1"}, {7, "sources[1] = x_2"}}));
  EXPECT_EQ(tev_source_array_log(nullptr, "sources"), 0u);
}

TEST_F(SourcesTest, Files) {
  const std::string long_id(70, 'n');
  struct Row {
    const char* what;
    std::string text;
    Ids ids;
  };
  const Row rows[] = {
      {"empty", "", {}},
      {"plain list", "alpha\n\nbeta\n", {"alpha", "beta"}},
      {"no final line end", "alpha\nbeta", {"alpha", "beta"}},
      {"foreign line ends", "alpha\r\n\r\nbeta\r\n", {"alpha", "beta"}},
      {"blanks stay", " alpha \n", {" alpha "}},
      {"zero byte ends a line", std::string("alp\0ha\n\0\nbeta\n", 14), {"alp", "beta"}},
      {"parentheses mean nothing in a list", "alpha(1)\n", {"alpha(1)"}},
      {"long id", long_id + "\n", {long_id.substr(0, 63)}},
      {"fabric scan of hosts",
       "x\nH-0001 \"(node-1)\" 2 (port)\nplain\n)(\n(open\nS\n(late)\n",
       {"node-1", "late"}},
      {"mark on a later line", "(one)\ntwo\nS-77\n", {"one"}},
      {"long id in a report", "H-1 (" + long_id + ")\n", {long_id.substr(0, 63)}},
      {"what stands beyond a line's limit",
       "H-1\n" + std::string(1020, ' ') + "(a)\n" + std::string(1021, ' ') + "(b)\n",
       {"a"}},
  };
  for (const Row& row : rows) {
    const std::string path = tree.write("input", row.text);
    const ArrayPtr array(tev_create_source_array_from_input(path.c_str()));
    ASSERT_TRUE(array) << row.what;
    EXPECT_EQ(idsOf(array), row.ids) << row.what;
  }
}

TEST_F(SourcesTest, InputThatIsNoFileIsARange) {
  EXPECT_EQ(idsOf(ArrayPtr(tev_create_source_array_from_input("2"))), (Ids{"host_1", "host_2"}));
  const std::string missing = tree.path("missing");
  const CapturedLog log;
  EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_input(missing.c_str())));
  EXPECT_TRUE(log.contains(3, "[source] Invalid source format: " + missing));
}

TEST_F(SourcesTest, FolderCannotBeOpenedAsAFile) {
  const std::string folder = tree.folder("folder");
  const CapturedLog log;
  EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_input(folder.c_str())));
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{3, "[source] Failed to open file: " + folder}}));
}

}  // namespace
