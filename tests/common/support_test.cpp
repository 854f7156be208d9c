#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <stdexcept>
#include <utility>

#include "src/support/guard.h"
#include "src/support/log_throttle.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using Lines = std::optional<Texts>;
using tev::support::CutText;
using tev::support::readLines;

TEST(Text, TrimTakesSixKindsOfWhiteSpaceFromBothEnds) {
  EXPECT_EQ(tev::string::trim(" \t\n\r\f\va b\tc\v\f\r\n\t "), "a b\tc");
  EXPECT_EQ(tev::string::trim(" \t "), "");
  EXPECT_EQ(tev::string::trim(""), "");
  EXPECT_EQ(tev::string::trim("\xA0x\x85"), "\xA0x\x85");
}

TEST(Text, SplitKeepsEmptyPieces) {
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(tev::support::split("", ','), Pieces{""});
  EXPECT_EQ(tev::support::split("a", ','), Pieces{"a"});
  EXPECT_EQ(tev::support::split(",a,,b,", ','), (Pieces{"", "a", "", "b", ""}));
}

TEST(TextFile, Lines) {
  TempTree tree;
  const std::pair<std::string, Texts> rows[] = {
      {"", {}},
      {"\n", {""}},
      {"a\n\nb", {"a", "", "b"}},
      {"a\r\n", {"a\r"}},
      {std::string("a\0b\n", 4), {std::string("a\0b", 3)}},
      {std::string(10000, 'x') + "\ny\n", {std::string(10000, 'x'), "y"}}};
  for (const auto& [text, lines] : rows) EXPECT_EQ(readLines(tree.write("f", text)), lines);
}

TEST(TextFile, ReadingIsBounded) {
  TempTree tree;
  const std::string file = tree.write("f", "abc\ndef");
  EXPECT_EQ(readLines(file, CutText::kKept, 6), (Lines{{"abc"}}));  // half a line is none
  EXPECT_EQ(readLines(file, CutText::kRefused, 6), std::nullopt);
  EXPECT_EQ(readLines(file, CutText::kRefused, 7), (Lines{{"abc", "def"}}));
  EXPECT_EQ(readLines("/dev/zero", CutText::kKept, 10000), Lines{Texts{}});
  const std::string pipe = tree.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(readLines(pipe), Lines{Texts{}});
  EXPECT_EQ(readLines(tree.path("missing")), std::nullopt);
  EXPECT_EQ(readLines(tree.root().string()), std::nullopt);
  EXPECT_EQ(readLines(tree.link("loop", "loop")), std::nullopt);
}

TEST(LogThrottle, OneInTenSeconds) {
  tev::support::LogThrottle throttle;
  constexpr std::uint64_t start = 1'700'000'000'000'000;
  EXPECT_TRUE(throttle.admit(start));
  EXPECT_FALSE(throttle.admit(start));
  EXPECT_FALSE(throttle.admit(start + 9'999'999));
  EXPECT_TRUE(throttle.admit(start + 10'000'000));
  EXPECT_FALSE(throttle.admit(start + 19'999'999));
}

TEST(Guard, TurnsExceptionsIntoTheFailureValue) {
  const CapturedLog log;
  EXPECT_EQ(tev::support::guarded("entry", -1, [] { return 5; }), 5);
  EXPECT_EQ(tev::support::guarded("entry", -1, []() -> int { throw std::runtime_error("a %s"); }),
            -1);
  EXPECT_EQ(tev::support::guarded("entry", -1, []() -> int { throw 7; }), -1);
  EXPECT_EQ(log.lines(), linesAt(3, {"[entry] failed: a %s", "[entry] failed: unknown exception"}));
}

}  // namespace
