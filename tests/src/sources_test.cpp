#include "tev/sources.h"

#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "src/support/malloc_ptr.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tests/support/owned.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using SourcePtr = Owned<tev_source_t, tev_destroy_source>;
using ArrayPtr = Owned<tev_source_array_t, tev_destroy_source_array>;
using OwnText = tev::support::MallocPtr<char>;

// The ids of the array that comes from the input, with a '|' between them; "none" without one.
std::string idsFrom(const std::string& input) {
  const ArrayPtr array(tev_create_source_array_from_input(input.c_str()));
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

TEST_F(SourcesTest, DefaultIdentity) {
  char name[256] = "";
  ASSERT_EQ(gethostname(name, sizeof name - 1), 0);
  const std::string machine = std::string(name).substr(0, std::string(name).find('.'));
  const struct {
    std::optional<std::string> source_id, host_name;
    std::string id;
  } rows[] = {
      {"", "named", ""},                     // the source id first, even an empty one
      {{}, "named.domain", "named.domain"},  // then the host variable, whole
      {{}, {}, machine.substr(0, 63)},       // then the machine
  };
  for (const auto& row : rows) {
    environment.set("TEV_SOURCE_ID", row.source_id);
    environment.set("TEV_HOST_NAME", row.host_name);
    const ArrayPtr array(tev_create_default_source_array("a tag that is cut"));
    ASSERT_TRUE(array && array->count == 1) << row.id;
    EXPECT_EQ(array->sources[0]->id, row.id);
    EXPECT_STREQ(array->sources[0]->tag, "a tag that is c");
  }
}

TEST_F(SourcesTest, Ranges) {
  const std::string p64(64, 'p');
  const std::pair<std::string, std::string> rows[] = {
      {"002", "host_1|host_2"},
      {"0-1", "host_0|host_1"},
      {"2147483647-2147483647", "host_2147483647"},
      {"node[2-4]", "node_2|node_3|node_4"},
      {"[5-5]", "_5"},
      {p64 + "[1-1]", p64.substr(1)},
      {"65535", "none"},  // beyond the largest array
      {"n[0-2147483647]", "none"},
  };
  for (const auto& [text, ids] : rows) EXPECT_EQ(idsFrom(text), ids) << text;
}

TEST_F(SourcesTest, InvalidRanges) {
  for (const std::string text :
       {"", "0", "-", "3-", "5-3", "3x", " 3", "+3", "2147483648", "node[2-4", "no-de[2-4]",
        "node]2-4[", "node[-4]", "node[4-2]", "node[3]", "%s%n"}) {
    const CapturedLog log;
    EXPECT_FALSE(ArrayPtr(tev_create_source_array_from_string(text.c_str()))) << text;
    EXPECT_EQ(log.lines(), linesAt(3, {"[source] Invalid source format: " + text}));
  }
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
  EXPECT_EQ(tev_source_array_find_source(array.get(), last), 65533);
  EXPECT_EQ(tev_source_array_find_source(array.get(), one_more.get()), TEV_SOURCE_NOT_FOUND);
}

// A record from another module may have texts without a terminator.
TEST_F(SourcesTest, Texts) {
  const tev_source_t first = {"a", "z"}, second = {"b", "x"}, third = {"b", "y"};
  EXPECT_LT(tev_source_compare(&first, &second), 0);
  EXPECT_GT(tev_source_compare(&third, &second), 0);
  tev_source_t full;
  std::fill(std::begin(full.id), std::end(full.id), 'i');
  std::fill(std::begin(full.tag), std::end(full.tag), 't');
  const std::string id(64, 'i');
  const std::string text = id + ':' + std::string(16, 't');
  EXPECT_EQ(OwnText(tev_source_string(&full)).get(), id);
  const tev_source_t brief = {"id", ""};
  const OwnText room(tev_source_string(&brief));
  EXPECT_STREQ(room.get(), "id");
  EXPECT_GE(malloc_usable_size(room.get()), 65u);  // whatever the id's length

  char buffer[100] = "";
  CapturedLog log;
  EXPECT_FALSE(tev_source_full_string(&full, buffer, 81));
  EXPECT_STREQ(buffer, "");
  EXPECT_TRUE(tev_source_full_string(&full, buffer, 82));
  EXPECT_EQ(buffer, text);
  const ArrayPtr array(tev_create_source_array_from_string("x[1-2]"));
  EXPECT_EQ(tev_source_array_log(array.get(), "sources"), 2u);
  EXPECT_EQ(log.lines(), linesAt(7, {"[source] buffer too small for source " + text + " (got 81)",
                                     "sources[0] = x_1", "sources[1] = x_2"}));
}

TEST_F(SourcesTest, Files) {
  const std::pair<std::string, std::string> rows[] = {
      {"", ""},
      {" alpha \r\n\r\nbeta(1)", " alpha |beta(1)"},
      {std::string("alp\0ha\n\0\nbeta\n", 14), "alp|beta"},
      {"\xEF\xBB\xBF\xEF\xBB\xBFmarked\n", "\xEF\xBB\xBFmarked"},  // one byte order mark
      // A fabric-scan report's hosts.
      {"x\nH-1 \"(node-1)\" 2 (port)\nplain\n)(\n(open\n(late)\n", "node-1|late"},
      {"H-1\n" + std::string(1020, ' ') + "(a)\n" + std::string(1021, ' ') + "(b)\n", "a"},
  };
  for (const auto& [text, ids] : rows) EXPECT_EQ(idsFrom(tree.write("input", text)), ids) << text;

  const CapturedLog log;
  for (const std::string& no_file : {tree.path("missing"), tree.folder("3")}) {
    EXPECT_EQ(idsFrom(no_file), "none");
    EXPECT_TRUE(log.contains(3, "[source] Invalid source format: " + no_file));
  }
  EXPECT_EQ(idsFrom("/dev/zero"), "none");
  EXPECT_TRUE(log.contains(3, "[source] Failed to open file: /dev/zero"));
  const auto before = std::filesystem::current_path();
  std::filesystem::current_path(tree.root());
  EXPECT_EQ(idsFrom("3"), "host_1|host_2|host_3");
  std::filesystem::current_path(before);
}

}  // namespace
