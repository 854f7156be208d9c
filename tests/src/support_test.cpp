#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <thread>

#include "src/support/c_handle.h"
#include "src/support/guard.h"
#include "src/support/log_throttle.h"
#include "src/support/text.h"
#include "src/support/text_file.h"
#include "tests/support/captured_log.h"
#include "tests/support/temp_tree.h"

namespace {

using namespace tev::test;
using tev::support::readFirstLines;
using tev::support::readWholeText;

TEST(Text, TrimAndSplit) {
  EXPECT_EQ(tev::string::trim(" \t\n\r\f\v\xA0 b\tc\v\f\r\n\t "), "\xA0 b\tc");
  EXPECT_EQ(tev::string::trim(" \t "), "");
  using Pieces = std::vector<std::string_view>;
  EXPECT_EQ(tev::support::split("", ','), Pieces{""});
  EXPECT_EQ(tev::support::split(",a,,b,", ','), (Pieces{"", "a", "", "b", ""}));
  Texts lines;
  for (const std::string_view line : tev::support::Lines("\na\r\n\nb")) lines.emplace_back(line);
  EXPECT_EQ(lines, (Texts{"", "a\r", "", "b"}));
}

TEST(TextFile, ReadingIsBounded) {
  using namespace std::chrono_literals;
  TempTree tree;
  const std::string file = tree.write("f", "abc\n\ndef");
  const std::string several_chunks(10000, 'x');
  const std::string pipe = tree.path("pipe");  // without a writer
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  const CapturedLog log;
  EXPECT_EQ(readFirstLines("tag", file, 7), "abc\n\n");  // an incomplete line is dropped
  EXPECT_EQ(readFirstLines("tag", file, 8), "abc\n\ndef");
  EXPECT_EQ(readFirstLines("tag", "/dev/zero", 10000), "");
  EXPECT_EQ(readFirstLines("tag", pipe), "");
  EXPECT_EQ(readWholeText("tag", file, {.bytes = 7}), std::nullopt);
  EXPECT_EQ(readWholeText("tag", file, {.bytes = 8}), "abc\n\ndef");
  EXPECT_EQ(readWholeText("tag", tree.write("f", several_chunks)), several_chunks);
  EXPECT_EQ(readWholeText("tag", pipe, {.until_first = 20ms}), std::nullopt);
  std::thread late([&] {
    std::this_thread::sleep_for(50ms);
    std::ofstream(pipe) << "late\n";
  });
  EXPECT_EQ(readWholeText("tag", pipe), "late\n");
  late.join();
  const int pausing = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(write(pausing, "a\n", 2), 2);
  EXPECT_EQ(readWholeText("tag", pipe, {.until_next = 30ms}), std::nullopt);
  close(pausing);
  for (const std::string& unreadable : {tree.path("missing"), tree.root().string()})
    EXPECT_EQ(readWholeText("tag", unreadable), std::nullopt) << unreadable;
  EXPECT_EQ(log.lines(), linesAt(4, {"[tag] " + file + ": only the first 5 bytes are read",
                                     "[tag] /dev/zero: only the first 0 bytes are read",
                                     "[tag] " + file + " is not read: it has more than 7 bytes",
                                     "[tag] " + pipe + " is not read: nothing came for 20 ms",
                                     "[tag] " + pipe + " is not read: nothing came for 30 ms"}));
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
  EXPECT_FALSE(succeeds("g", {"Failed for", "x"}, other));
  EXPECT_EQ(log.lines(), (LogLines{{3, "[entry] failed: reason %s"},
                                   {3, "[entry] failed: unknown exception"},
                                   {7, "[g] unknown exception"},
                                   {3, "[g] Failed for 'x'"}}));
}

}  // namespace
