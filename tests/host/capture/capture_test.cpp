#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "host/capture/capture_file.h"
#include "host/capture/capture_source.h"
#include "host/capture/parts.h"
#include "host/capture/playback_source.h"
#include "host/support/errors.h"
#include "tests/host/process.h"
#include "tests/host/sample_types.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

const auto kNever = [] { return false; };

// A file with four chunks of events, between other chunks.
class Recorded {
 public:
  Recorded() {
    types_.add("t", {{"device", nullptr, "char", 0, 8}, {"rx", nullptr, "uint32_t", 0, 1}},
               {"device"});
    CaptureHead head;
    head.schemas = {SchemaView::fromTypeSystem(*types_).schemas()[0].text};
    head.source = "a source";
    head.plugin_version = "1.2.3";
    head.options = {{"key", "value\xff"}};
    head.start = {900'000, 5};
    head.interval_usec = 1000;
    CaptureFile file(path, head);
    for (std::uint32_t i = 0; i < 4; ++i) {
      chunks.push_back(blocksOf(i));
      file.writeEvents(chunks.back(), 1000 * (i + 1), 1000 * (i + 1));
      DeviceCounts counts{.device = "d0", .lost = i};
      file.writeCounts({counts}, 1000 * (i + 1));
      file.writeClocks({1'000'000 * (i + 1), 7});
    }
    file.finish();
  }

  std::string bytes() const { return test::readAll(path); }

  test::TempTree tree;
  const std::string path = tree.path("a.tevcap");
  std::vector<test::Bytes> chunks;

 private:
  // The first ones can be packed, the others cannot.
  static test::Bytes blocksOf(std::uint32_t chunk) {
    test::Bytes bytes;
    for (std::uint32_t i = 0; i < (chunk < 2 ? 20 : 1); ++i)
      bytes.block(1000 * (chunk + 1), 0, 0, 1).text("d0", 8).add(i * chunk);
    return bytes;
  }

  test::SampleTypes types_;
};

struct Read {
  std::vector<std::string> batches;
  std::size_t damages = 0;
  bool is_cut_off = false;
  std::uint64_t lost = 0;
  std::string error;
};

Read readFile(const std::string& path, const TimeSpan& span = {}) {
  Read read;
  try {
    CaptureSource source({path}, span);
    const auto take = [&](Blocks blocks) {
      read.batches.emplace_back(blocks.begin(), blocks.end());
    };
    while (source.fetch(take, kNever)) {
    }
    const auto files = source.files();
    read.damages = files[0].damages.size();
    read.is_cut_off = read.damages > 0 && files[0].damages.back().is_cut_off;
    if (const auto counts = source.counts()) read.lost = counts->at(0).lost;
  } catch (const RunError& error) {
    read.error = error.what();
  }
  return read;
}

std::string textOf(const test::Bytes& bytes) {
  return {bytes.begin(), bytes.end()};
}

TEST(Capture, GivesBackWhatWasRecorded) {
  Recorded recorded;
  const Read all = readFile(recorded.path);
  EXPECT_EQ(all.error, "");
  EXPECT_EQ(all.damages, 0U);
  EXPECT_EQ(all.lost, 3U);
  EXPECT_THAT(all.batches, ElementsAre(textOf(recorded.chunks[0]), textOf(recorded.chunks[1]),
                                       textOf(recorded.chunks[2]), textOf(recorded.chunks[3])));
  const Read some = readFile(recorded.path, {2000, 3001});
  EXPECT_THAT(some.batches, ElementsAre(textOf(recorded.chunks[1]), textOf(recorded.chunks[2])));
  EXPECT_EQ(some.lost, 3U);  // one a millisecond, in the updates from 2 to 4 ms
  const CaptureSource source({recorded.path, recorded.path});
  EXPECT_THAT(source.problems(), ElementsAre(HasSubstr("are the same recording")));
  EXPECT_EQ(source.head().source, "a source");
  EXPECT_EQ(source.head().plugin_version, "1.2.3");
  EXPECT_EQ(source.head().options.at(0).second, "value\\xff");
  EXPECT_EQ(source.head().start.real, 900'000U);
}

// Wherever a file ends and whichever byte is wrong, everything else is read.
TEST(Capture, DeliversEverythingSound) {
  Recorded recorded;
  const std::string good = recorded.bytes();
  const std::string path = recorded.tree.path("bad.tevcap");
  std::size_t first_event = good.size();
  for (std::size_t at = 0; at < good.size(); ++at) {
    SCOPED_TRACE(at);
    recorded.tree.write("bad.tevcap", good.substr(0, at));
    const Read cut = readFile(path);
    if (cut.error.empty()) first_event = std::min(first_event, at);
    EXPECT_EQ(cut.error.empty(), at >= first_event);
    EXPECT_EQ(cut.damages, cut.is_cut_off ? 1U : 0U);
    for (std::size_t i = 0; i < cut.batches.size(); ++i)
      EXPECT_EQ(cut.batches[i], textOf(recorded.chunks[i]));

    std::string wrong = good;
    wrong[at] = static_cast<char>(wrong[at] ^ 0x10);
    recorded.tree.write("bad.tevcap", wrong);
    const Read flipped = readFile(path);
    EXPECT_EQ(flipped.error.empty(), at >= first_event);
    if (at < first_event) continue;
    EXPECT_EQ(flipped.damages, 1U);
    EXPECT_GE(flipped.batches.size(), 3U);
  }
  EXPECT_LT(first_event, good.size() / 2);
}

// Whole chunks that are missing or repeated are noticed by their numbers.
TEST(Capture, CountsItsChunks) {
  Recorded recorded;
  const std::string good = recorded.bytes();
  std::vector<std::string> chunks;
  for (std::size_t at = 0, size = 0; at < good.size(); at += size) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&good[at]);
    size = kChunkHeaderSize + readHeader({bytes, kChunkHeaderSize})->stored;
    chunks.push_back(good.substr(at, size));
  }
  const auto problemsOf = [&](const std::vector<std::size_t>& order) {
    std::string bytes;
    for (const std::size_t chunk : order) bytes += chunks[chunk];
    recorded.tree.write("bad.tevcap", bytes);
    CaptureSource source({recorded.tree.path("bad.tevcap")});
    while (source.fetch([](Blocks) {}, kNever)) {
    }
    return damageText(source) + (source.files()[0].is_finished ? "finished" : "open");
  };
  EXPECT_EQ(problemsOf({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}), "finished");
  EXPECT_EQ(problemsOf({0, 1, 2, 3}), "open");
  EXPECT_THAT(problemsOf({0, 1, 2, 6}), HasSubstr("3 chunks are missing"));
  EXPECT_THAT(problemsOf({0, 1, 2, 1, 3}), HasSubstr("bytes are damaged and were passed over\n"));
}

TEST(Capture, PassesOverUnknownKindsAndRefusesWhatItCannotUse) {
  Recorded recorded;
  std::string bytes = recorded.bytes();
  std::vector<std::uint8_t> unknown(kChunkHeaderSize);
  ChunkHeader header = *readHeader({reinterpret_cast<const std::uint8_t*>(bytes.data()), 64});
  header.kind = static_cast<ChunkKind>('?');
  header.number = 14;
  header.stored = header.unpacked = 0;
  header.codec = ChunkCodec::none;
  header.body_hash = hashOf({});
  writeHeader(header, ChunkHeaderBytes(unknown.data(), unknown.size()));
  recorded.tree.write("more.tevcap", bytes + std::string(unknown.begin(), unknown.end()));
  const Read more = readFile(recorded.tree.path("more.tevcap"));
  EXPECT_EQ(more.damages, 0U);
  EXPECT_EQ(more.batches.size(), 4U);

  recorded.tree.write("text", "device,plane\n");
  recorded.tree.write("empty", "");
  const std::pair<std::string, const char*> rows[] = {
      {recorded.tree.path("text"), "it is not a capture"},
      {recorded.tree.path("empty"), "it is empty"},
      {"/dev/zero", "it is not a regular file"},
      {"/", "it is not a regular file"},
      {recorded.tree.path("none"), "No such file"}};
  for (const auto& [path, error] : rows) EXPECT_THAT(readFile(path).error, HasSubstr(error));
  EXPECT_THROW(CaptureFile(recorded.path, {}), RunError);  // it exists
}

TEST(Playback, KeepsTheTimeOfTheRecording) {
  Recorded recorded;  // updates at 1, 2, 3 and 4 ms
  for (const double speed : {1.0, 0.5, 4.0}) {
    CaptureSource recording({recorded.path});
    std::int64_t now = 50;
    bool is_paused = false;
    PlaybackSource source(recording, {.speed = speed,
                                      .is_paused = [&] { return is_paused; },
                                      .steady_usec = [&] { return now; }});
    std::size_t batches = 0;
    const auto played = [&] {
      EXPECT_TRUE(source.fetch([&](Blocks) { ++batches; }, kNever));
      return batches;
    };
    EXPECT_EQ(played(), 1U);
    now += static_cast<std::int64_t>(900 / speed);
    EXPECT_EQ(played(), 1U);
    now += static_cast<std::int64_t>(100 / speed);
    EXPECT_EQ(played(), 2U);
    is_paused = true;
    EXPECT_EQ(played(), 2U);
    now += 10'000'000;
    EXPECT_EQ(played(), 2U);
    is_paused = false;
    EXPECT_EQ(played(), 2U);
    now += static_cast<std::int64_t>(2000 / speed);
    EXPECT_EQ(played(), 4U);
    EXPECT_EQ(source.counts()->at(0).lost, 3U);
  }
}

TEST(Capture, EndsWithAWholeChunkOnAFullDisk) {
  test::TempTree tree;
  const std::string path = tree.path("a.tevcap");
  Recorded recorded;
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{2000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  std::size_t written = 0;
  {
    CaptureHead head;
    head.schemas = CaptureSource({recorded.path}).head().schemas;
    CaptureFile file(path, head);
    EXPECT_THROW(for (;; ++written) file.writeEvents(recorded.chunks[1], 2000, 2000), RunError);
  }
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  const Read read = readFile(path);
  EXPECT_GT(written, 0U);
  EXPECT_EQ(read.batches.size(), written);
  EXPECT_EQ(read.damages, 0U);
}

TEST(CaptureParts, AreInOrderAndTheOldestAreRemoved) {
  test::TempTree tree;
  const std::string path = tree.path("a.tevcap");
  const std::string begin(std::begin(kCaptureMagic), std::end(kCaptureMagic));
  EXPECT_EQ(partPath("x/a.b", 86'400, 7), "x/a.19700102T000000Z.000007.b");
  for (const std::uint64_t seconds : {3U, 1U, 2U})
    tree.write(partPath("a.tevcap", seconds, 1), begin);
  tree.write(partPath("a.tevcap", 0, 1), "not a capture");
  for (const char* const other : {"a.tevcap", "a.19700101T000001Z.00001.tevcap", "b.tevcap"})
    tree.write(other, "x");
  removeOldParts(path, 2, "");
  EXPECT_THAT(existingParts(path),
              ElementsAre(partPath(path, 0, 1), partPath(path, 2, 1), partPath(path, 3, 1)));
  EXPECT_TRUE(std::filesystem::exists(path));
}

// A recording that is killed can be read up to its last update, and the text of a whole one is that
// of the run.
TEST(Capture, SurvivesTheEndOfItsWriter) {
  test::TempTree tree;
  const std::string path = tree.path("a.tevcap");
  const std::string options = " --option multipath-sample-interval-usec=1000 --update 20 ";
  {
    test::HostProcess process("run --simulate --format jsonl" + options + "--capture " + path);
    process.awaitOutput();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    process.signal(SIGKILL);
    process.finish();
  }
  const auto killed = test::HostProcess("decode --format none " + path).finish();
  EXPECT_THAT(readFile(path).batches, testing::Not(testing::IsEmpty()));
  EXPECT_LE(killed.exit, 1);

  const std::string whole = tree.path("b.tevcap");
  const auto run =
      test::HostProcess("run --simulate --samples 50 --format csv" + options + "--capture " + whole)
          .finish();
  const auto decoded = test::HostProcess("decode --samples 50 --format csv " + whole).finish();
  EXPECT_EQ(decoded.exit, 0) << decoded.err;
  EXPECT_EQ(decoded.out, run.out);
  EXPECT_THAT(test::HostProcess("info " + whole).finish().out,
              testing::Contains(HasSubstr("interval    1 ms")));
  EXPECT_THAT(test::HostProcess("run --simulate --capture " + whole).finish().err,
              HasSubstr("File exists"));
}

// SIGHUP begins a new file. If that is not possible, the run goes on in the old one.
TEST(Capture, BeginsANewFileAtAHangUp) {
  test::TempTree tree;
  std::filesystem::create_directory(tree.path("now"));
  const std::string path = tree.path("now/a.tevcap");
  test::HostProcess process(
      "run --simulate --format csv --option multipath-sample-interval-usec=1000 --update 20 "
      "--capture " +
      path);
  process.awaitOutput();
  process.signal(SIGHUP);
  while (existingParts(path).empty()) usleep(5'000);
  std::filesystem::rename(tree.path("now"), tree.path("later"));
  process.signal(SIGHUP);
  process.awaitError("going on in");
  process.signal(SIGTERM);
  const auto run = process.finish();
  EXPECT_EQ(run.exit, 0) << run.err;

  const auto parts = existingParts(tree.path("later/a.tevcap"));
  EXPECT_THAT(parts, ElementsAre(testing::EndsWith("Z.000002.tevcap")));
  const auto decoded =
      test::HostProcess("decode --format csv " + tree.path("later/a.tevcap") + " " + parts.at(0))
          .finish();
  EXPECT_EQ(decoded.exit, 0) << decoded.err;
  EXPECT_EQ(decoded.out, run.out);
}

}  // namespace
}  // namespace tev::host
