#include "tev/sources.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "src/support/malloc_ptr.h"
#include "src/support/text.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using SourcePtr = Owned<tev_source_t, tev_destroy_source>;
using ArrayPtr = Owned<tev_source_array_t, tev_destroy_source_array>;
using OwnText = tev::support::MallocPtr<char>;

ArrayPtr fromString(const char* text) {
  return ArrayPtr(tev_create_source_array_from_string(text));
}

// The ids with a '|' between them; "none" without an array.
std::string idsOf(const ArrayPtr& array) {
  if (!array) return "none";
  std::string ids;
  for (std::uint32_t i = 0; i < array->count; ++i) {
    ids += (i ? "|" : "") + std::string(array->sources[i]->id);
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
  const std::string text(64, 't');
  const SourcePtr source(tev_create_source(text.c_str(), text.c_str()));
  EXPECT_EQ(std::string(source->id), text.substr(0, 63));
  EXPECT_EQ(std::string(source->tag), text.substr(0, 15));
  const SourcePtr hollow(tev_create_source(nullptr, nullptr));
  EXPECT_EQ(std::string(hollow->id) + hollow->tag, "");
}

TEST_F(SourcesTest, DefaultIdentity) {
  char name[256] = "";
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  const std::string machine = std::string(name).substr(0, std::string(name).find('.'));
  const struct {
    const char* what;
    std::optional<std::string> source_id, host_name;
    std::string id;
  } rows[] = {
      {"source id first", "unit.a", "named", "unit.a"},
      {"an empty one is one", "", "named", ""},
      {"then the host variable, whole", {}, "named.domain", "named.domain"},
      {"then the machine", {}, {}, machine.substr(0, 63)},
      {"cut", std::string(70, 'x'), {}, std::string(63, 'x')},
  };
  for (const auto& row : rows) {
    environment.set("TEV_SOURCE_ID", row.source_id);
    environment.set("TEV_HOST_NAME", row.host_name);
    const ArrayPtr array(tev_create_default_source_array("multipath"));
    ASSERT_TRUE(array && array->count == 1) << row.what;
    EXPECT_EQ(array->sources[0]->id, row.id) << row.what;
    EXPECT_STREQ(array->sources[0]->tag, "multipath");
  }
}

TEST_F(SourcesTest, Ranges) {
  const std::string p60(60, 'p');
  const std::pair<std::string, std::string> rows[] = {
      {"3", "host_1|host_2|host_3"},
      {"002", "host_1|host_2"},
      {"2-4", "host_2|host_3|host_4"},
      {"0-1", "host_0|host_1"},
      {"2147483647-2147483647", "host_2147483647"},
      {"node[2-4]", "node_2|node_3|node_4"},
      {"[5-5]", "_5"},
      {"a%sb[1-1]", "a%sb_1"},
      {p60 + "[10-11]", p60 + "_10|" + p60 + "_11"},
      {p60 + "pppp[1-1]", p60 + "ppp"},
      {"65535", "none"},  // beyond the largest array
      {"0-65534", "none"},
      {"n[0-2147483647]", "none"},
  };
  for (const auto& [text, ids] : rows) EXPECT_EQ(idsOf(fromString(text.c_str())), ids) << text;
}

TEST_F(SourcesTest, InvalidRanges) {
  const char* const all =
      "|0|-|-3|3-|5-3|x|3x| 3|3 |+3|0x3|2--4|1-2-3|a-b|2147483648|1-2147483648|"
      "99999999999999999999-99999999999999999999|node[2-4|node2-4]|no-de[2-4]|node[2]-4|node]2-4[|"
      "node[-4]|node[2-]|node[4-2]|node[3]|%s%n";
  for (const auto piece : tev::support::split(all, '|')) {
    const std::string text(piece);
    const CapturedLog log;
    EXPECT_FALSE(fromString(text.c_str())) << text;
    EXPECT_EQ(log.lines(), linesAt(3, {"[source] Invalid source format: " + text}));
  }
  EXPECT_FALSE(fromString(nullptr));
  EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_input(nullptr)));
}

TEST_F(SourcesTest, ArrayHoldsAtMost65534) {
  const ArrayPtr array(tev_create_source_array());
  array->count = 65533;  // filled here, as that many appends take their time under a sanitizer
  array->sources = static_cast<tev_source_t**>(std::calloc(array->count, sizeof(tev_source_t*)));
  ASSERT_NE(array->sources, nullptr);

  tev_source_t* const last = tev_create_source("last", "");
  ASSERT_TRUE(tev_source_array_append(array.get(), last));
  const SourcePtr one_more(tev_create_source("last", ""));
  EXPECT_FALSE(tev_source_array_append(array.get(), one_more.get()));
  EXPECT_FALSE(tev_source_array_append(array.get(), nullptr));
  EXPECT_EQ(array->count, 65534u);
  EXPECT_EQ(tev_source_array_find_source(array.get(), last), 65533);
  EXPECT_EQ(tev_source_array_find_source(array.get(), one_more.get()), TEV_SOURCE_NOT_FOUND);
}

TEST_F(SourcesTest, OrderIsByIdThenTag) {
  const tev_source_t sorted[] = {{"a", "z"}, {"b", "x"}, {"b", "y"}};
  for (std::size_t i = 0; i < 3; ++i)
    for (std::size_t j = 0; j < 3; ++j) {
      tev_source_t copy{};
      EXPECT_EQ(tev_source_copy(&copy, &sorted[i]), &copy);
      const int order = tev_source_compare(&copy, &sorted[j]);
      EXPECT_EQ(order < 0, i < j);
      EXPECT_EQ(order > 0, i > j);
    }
}

// A record from elsewhere need not end its texts.
TEST_F(SourcesTest, Texts) {
  tev_source_t full;
  std::fill(std::begin(full.id), std::end(full.id), 'i');
  std::fill(std::begin(full.tag), std::end(full.tag), 't');
  const std::pair<tev_source_t, std::string> rows[] = {
      {{"node", "tag"}, "node:tag"}, {full, std::string(64, 'i') + ':' + std::string(16, 't')}};
  for (const auto& [source, text] : rows) {
    EXPECT_EQ(OwnText(tev_source_string(&source)).get(), text.substr(0, text.find(':')));
    std::string buffer(100, '#');
    const CapturedLog log;
    EXPECT_FALSE(tev_source_full_string(&source, buffer.data(), text.size()));
    EXPECT_EQ(log.lines(), linesAt(7, {"[source] buffer too small for source " + text + " (got " +
                                       std::to_string(text.size()) + ")"}));
    EXPECT_EQ(buffer, std::string(100, '#'));
    EXPECT_TRUE(tev_source_full_string(&source, buffer.data(), text.size() + 1));
    EXPECT_STREQ(buffer.c_str(), text.c_str());
  }
}

TEST_F(SourcesTest, LogListsIds) {
  const ArrayPtr array = fromString("x[1-2]");
  const CapturedLog log;
  EXPECT_EQ(tev_source_array_log(array.get(), "sources"), 2u);
  EXPECT_EQ(log.lines(), linesAt(7, {"sources[0] = x_1", "sources[1] = x_2"}));
  EXPECT_EQ(tev_source_array_log(nullptr, "sources"), 0u);
}

TEST_F(SourcesTest, Files) {
  const std::string long_id(70, 'n');
  const struct {
    const char* what;
    std::string text, ids;
  } rows[] = {
      {"empty", "", ""},
      {"no final line end", "alpha\n\nbeta", "alpha|beta"},
      {"foreign line ends", "alpha\r\n\r\nbeta\r\n", "alpha|beta"},
      {"blanks stay", " alpha \n", " alpha "},
      {"zero byte ends a line", std::string("alp\0ha\n\0\nbeta\n", 14), "alp|beta"},
      {"parentheses mean nothing in a list", "alpha(1)\n", "alpha(1)"},
      {"long id", long_id + "\n", long_id.substr(0, 63)},
      {"fabric scan of hosts", "x\nH-1 \"(node-1)\" 2 (port)\nplain\n)(\n(open\nS\n(late)\n",
       "node-1|late"},
      {"mark on a later line", "(one)\ntwo\nS-77\n", "one"},
      {"long id in a report", "H-1 (" + long_id + ")\n", long_id.substr(0, 63)},
      {"what stands beyond a line's limit",
       "H-1\n" + std::string(1020, ' ') + "(a)\n" + std::string(1021, ' ') + "(b)\n", "a"},
  };
  for (const auto& row : rows) {
    const std::string path = tree.write("input", row.text);
    EXPECT_EQ(idsOf(ArrayPtr(tev_create_source_array_from_input(path.c_str()))), row.ids)
        << row.what;
  }
}

TEST_F(SourcesTest, InputThatIsNoFileIsARange) {
  EXPECT_EQ(idsOf(ArrayPtr(tev_create_source_array_from_input("2"))), "host_1|host_2");
  const CapturedLog log;
  for (const std::string& path : {tree.path("missing"), tree.folder("folder")})
    EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_input(path.c_str())));
  EXPECT_EQ(log.lines(), linesAt(3, {"[source] Invalid source format: " + tree.path("missing"),
                                     "[source] Failed to open file: " + tree.path("folder")}));
}

}  // namespace
