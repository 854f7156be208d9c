#include <gtest/gtest.h>
#include <sys/stat.h>

#include <optional>
#include <stdexcept>

#include "src/support/guard.h"
#include "src/support/log_throttle.h"
#include "src/support/plain_interface.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using Lines = std::optional<Texts>;
using tev::support::CutText;
using tev::support::readLines;

TEST(Text, TrimAndSplit) {
  EXPECT_EQ(tev::string::trim(" \t\n\r\f\v\xA0 b\tc\v\f\r\n\t "), "\xA0 b\tc");
  EXPECT_EQ(tev::string::trim(" \t "), "");
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(tev::support::split("", ','), Pieces{""});
  EXPECT_EQ(tev::support::split(",a,,b,", ','), (Pieces{"", "a", "", "b", ""}));
}

TEST(TextFile, ReadingIsBounded) {
  TempTree tree;
  const std::string file = tree.write("f", "abc\n\ndef");
  EXPECT_EQ(readLines(file, CutText::kKept, 7), (Lines{{"abc", ""}}));  // half a line is none
  EXPECT_EQ(readLines(file, CutText::kRefused, 7), std::nullopt);
  EXPECT_EQ(readLines(file, CutText::kRefused, 8), (Lines{{"abc", "", "def"}}));
  const Lines several_chunks{{std::string(10000, 'x'), std::string("a\0b\r", 4)}};
  EXPECT_EQ(readLines(tree.write("f", several_chunks->at(0) + "\n" + several_chunks->at(1) + "\n")),
            several_chunks);
  EXPECT_EQ(readLines("/dev/zero", CutText::kKept, 10000), Lines{Texts{}});
  const std::string pipe = tree.path("pipe");
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(readLines(pipe), Lines{Texts{}});
  for (const std::string& unreadable : {tree.path("missing"), tree.root().string()})
    EXPECT_EQ(readLines(unreadable), std::nullopt) << unreadable;
}

TEST(LogThrottle, OneInTenSeconds) {
  tev::support::LogThrottle throttle;
  constexpr std::uint64_t start = 1'700'000'000'000'000;
  EXPECT_TRUE(throttle.admit(start));
  EXPECT_FALSE(throttle.admit(start + 9'999'999));
  EXPECT_TRUE(throttle.admit(start + 10'000'000));
  EXPECT_FALSE(throttle.admit(start + 19'999'999));
}

TEST(Exceptions, BecomeTheFailureValueAndALine) {
  using namespace tev::support;
  const auto text = []() -> int { throw std::runtime_error("reason %s"); };
  const auto other = []() -> bool { throw 1; };
  const CapturedLog log;
  EXPECT_EQ(guarded("entry", -1, text), -1);
  EXPECT_FALSE(guarded("entry", false, other));
  EXPECT_EQ(attempt("f", {"Failed to count"}, -1, text), -1);
  EXPECT_FALSE(succeeds("g", {"Failed for", "x"}, other));
  EXPECT_TRUE(succeeds("g", {"Failed for", "x"}, [] { return true; }));
  EXPECT_EQ(log.lines(), (LogLines{{3, "[entry] failed: reason %s"},
                                   {3, "[entry] failed: unknown exception"},
                                   {7, "[f] reason %s"},
                                   {3, "[f] Failed to count"},
                                   {7, "[g] unknown exception"},
                                   {3, "[g] Failed for 'x'"}}));
}

}  // namespace
