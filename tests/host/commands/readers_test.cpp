// Outputs that cannot take all of the text: a reader that stalls, dies or never comes, a full disk.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "tests/host/process.h"

namespace tev::host {
namespace {

using test::HostProcess;
using test::Result;
using testing::HasSubstr;

// 4000 events from one update to the next, more than a pipe holds.
const std::string kRun = "run --plugin " FAKE_PLUGIN " --update=5 --option=burst=1000 ";

std::size_t eventsOfSummary(const std::string& text) {
  const std::size_t row = text.find("fake_plane ");
  return row == std::string::npos ? 0 : std::stoul(text.substr(row + sizeof "fake_plane"));
}

class ReaderTest : public testing::Test {
 protected:
  ReaderTest() { EXPECT_EQ(mkfifo(pipe_.c_str(), 0600), 0); }

  test::TempTree tree_;
  const std::string pipe_ = tree_.path("pipe");
};

TEST_F(ReaderTest, WhoStallsDoesNotHoldUpTheEndOfTheRun) {
  for (const int signal : {0, SIGTERM}) {
    const int reader = open(pipe_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    const auto words = kRun + "--option=lost=1 --output=" + pipe_;
    HostProcess process(words + (signal ? "" : " --duration=0.1"));
    pollfd readable{reader, POLLIN, 0};
    ASSERT_EQ(poll(&readable, 1, 60'000), 1);
    if (signal) process.signal(signal);
    const Result result = process.finish();
    std::string taken(1 << 20, '\0');
    const ssize_t bytes = read(reader, taken.data(), taken.size());
    close(reader);
    ASSERT_GT(bytes, 0);
    taken.resize(static_cast<std::size_t>(bytes));
    EXPECT_EQ(result.exit, 1);
    EXPECT_EQ(taken.back(), '\n') << "whole records";
    const auto lines = test::linesOf(taken);
    EXPECT_EQ(eventsOfSummary(result.err),
              std::ranges::count_if(lines,
                                    [](const auto& line) {
                                      return line.find("missing_samples") == std::string::npos;
                                    }))
        << result.err;
    EXPECT_THAT(result.err, HasSubstr("samples are being lost"));
    EXPECT_THAT(result.err, HasSubstr("the reader of " + pipe_ + " stopped reading\n"));
  }
}

TEST_F(ReaderTest, WhoDiesLeavesASummary) {
  const int reader = open(pipe_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  HostProcess process(kRun, pipe_);
  pollfd readable{reader, POLLIN, 0};
  ASSERT_EQ(poll(&readable, 1, 60'000), 1);
  close(reader);
  const Result result = process.finish();
  EXPECT_EQ(result.exit, 0);
  EXPECT_THAT(result.err, HasSubstr("did not reach standard output\n"));
  EXPECT_THAT(result.err, testing::StartsWith("tev-host: 0.")) << "the summary and no message";
}

TEST_F(ReaderTest, WhoNeverComesIsWaitedForUntilASignal) {
  HostProcess process(kRun + "--output=" + pipe_);
  process.awaitError("waiting for a reader");
  process.signal(SIGINT);
  const Result result = process.finish();
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("cannot write " + pipe_ + ": it has no reader\n"));
}

TEST_F(ReaderTest, AFullDiskHasWholeRecordsAndTheSummaryCountsThem) {
  for (const std::string format : {"jsonl", "csv"}) {
    const std::string file = tree_.path(format);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit small{10'000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    HostProcess process(kRun + "--format=" + format + " --output=" + file);
    setrlimit(RLIMIT_FSIZE, &before);
    const Result result = process.finish();
    const std::string written = test::readAll(file);
    EXPECT_EQ(result.exit, 1);
    EXPECT_GT(written.size(), 9'900u);
    EXPECT_EQ(written.back(), '\n');
    EXPECT_EQ(eventsOfSummary(result.err), test::linesOf(written).size() - (format == "csv"))
        << result.err;
    EXPECT_THAT(result.err, HasSubstr("cannot write " + file + ": File too large\n"));
  }
}

}  // namespace
}  // namespace tev::host
