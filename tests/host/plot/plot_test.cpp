#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "host/plot/levels.h"
#include "host/plot/page_files.h"
#include "host/plot/page_text.h"
#include "host/plot/reduction.h"
#include "tests/host/plot/recording.h"
#include "tests/host/process.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

using testing::HasSubstr;

// However often the buckets are joined, each has the extremes of its own samples, in their order.
TEST(PlotReduction, KeepsTheExtremesOfEveryBucket) {
  test::SampleTypes types;
  types.add("t", {{"device", nullptr, "char", 0, 8}, {"load", nullptr, "uint32_t", 0, 1}},
            {"device"});
  const auto schema = SchemaView::fromTypeSystem(*types);
  const Projection projection(schema);
  for (const std::size_t budget : {std::size_t{1}, std::size_t{6000}, std::size_t{1} << 20}) {
    SCOPED_TRACE(budget);
    Figures figures(projection, {.counters = {}, .gauges = {"load"}}, 1000);
    Reduction reduction(figures, budget);
    SeriesTable table;
    std::mt19937 random(7);
    std::vector<std::uint32_t> values;
    constexpr std::uint64_t kBegin = 1'000'000'000;
    for (std::uint32_t i = 0; i < 20'000; ++i) {
      values.push_back(static_cast<std::uint32_t>(random() % 1'000'000));
      test::Bytes block;
      block.block(kBegin + 1000 * i, 0, 0, 1).text("d0", 8).add(values.back());
      decodeBlocks(schema, block, [&](const Event& event) {
        const Series& series = table.of(event);
        figures.sample(event, series);
        reduction.sample(event, series);
      });
    }
    reduction.finish();
    const auto& buckets = reduction.all()[0]->fields()[0].values;
    ASSERT_EQ(buckets.size(), reduction.buckets());
    std::size_t seen = 0;
    for (std::size_t i = 0; i < buckets.size(); ++i) {
      std::vector<float> own;
      for (; seen < values.size() &&
             kBegin + 1000 * seen - reduction.beginUsec() < (i + 1) * reduction.widthUsec();
           ++seen)
        own.push_back(static_cast<float>(values[seen]));
      ASSERT_EQ(buckets[i].isEmpty(), own.empty()) << i;
      if (own.empty()) continue;
      const auto [least, most] = std::ranges::minmax_element(own);
      ASSERT_EQ(buckets[i].first, least < most ? *least : *most) << i;
      ASSERT_EQ(buckets[i].second, least < most ? *most : *least) << i;
    }
    EXPECT_EQ(seen, values.size());
  }
}

TEST(PlotReduction, NumbersKeepTheirOrderIn24Bits) {
  std::uint32_t before = 0;
  for (float number = 0.001F; number < 1e12F; number *= 1.00001F) {
    const std::uint32_t packed = float24(number);
    ASSERT_GE(packed, before) << number;
    before = packed;
  }
  EXPECT_EQ(float24(0), 0U);
  EXPECT_EQ(float24(Bucket::kNone), 0xFFFFFFU);
}

TEST(PlotPage, TextsCannotBecomeMarkup) {
  EXPECT_EQ(asHtml("<a href=\"x\">'&"), "&lt;a href=&quot;x&quot;&gt;&#39;&amp;");
  EXPECT_EQ(asScriptJson(R"({"a":"</script><!--"})"), R"({"a":"\u003c/script>\u003c!--"})");
  // The known hash of an empty text.
  EXPECT_EQ(policyHash(""), "sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

class PlotCommand : public testing::Test {
 protected:
  void SetUp() override {
    test::writeRecording(recording_, 20'000);
    if (pageFiles()) return;
    const auto result = test::HostProcess("plot " + recording_ + " -o " + page_).finish();
    EXPECT_EQ(result.exit, 2);
    EXPECT_THAT(result.err, HasSubstr("this build has no plot"));
    GTEST_SKIP() << "the build has no plot";
  }

  // The names in the folder.
  std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(tree_.root()))
      names.push_back(entry.path().filename());
    std::ranges::sort(names);
    return names;
  }

  test::TempTree tree_;
  const std::string recording_ = tree_.path("a.tevcap");
  const std::string page_ = tree_.path("page.html");
};

TEST_F(PlotCommand, FinerLevelsDependOnTheSize) {
  std::uintmax_t before = 0;
  for (const std::uintmax_t kilobytes : {512U, 1024U, 16384U}) {
    const auto result = test::HostProcess("plot " + recording_ + " -o " + page_ + " --page-size " +
                                          std::to_string(kilobytes) + "K")
                            .finish();
    EXPECT_EQ(result.exit, 0) << result.err;
    const auto size = std::filesystem::file_size(page_);
    EXPECT_LE(size, kilobytes * 1024);
    EXPECT_GT(size, before);
    before = size;
  }
}

// A failed run leaves what was there before.
TEST_F(PlotCommand, ReplacesAPageOnlyByACompleteOne) {
  tree_.write("page.html", "before");
  const std::string whole = test::readAll(recording_);
  tree_.write("foreign.tevcap", "no capture");
  struct {
    const char* what;
    std::string words;
    int exit;
    const char* error;
  } const cases[] = {
      {"no capture", tree_.path("foreign.tevcap") + " -o " + page_, 1, "foreign.tevcap"},
      {"its own input", recording_ + " -o " + recording_, 2, "is to be read"},
      {"no such device", recording_ + " -o " + page_ + " --filter nobody", 2, "nobody"},
      {"full disk", recording_ + " -o /dev/full", 1, "cannot write /dev/full: No space left"},
      {"no folder", recording_ + " -o " + tree_.path("none/page.html"), 1,
       "none/page.html: No such"},
      {"too small", recording_ + " -o " + page_ + " --page-size 1K", 2, "from 256K to 512M"},
  };
  for (const auto& [what, words, exit, error] : cases) {
    SCOPED_TRACE(what);
    const auto result = test::HostProcess("plot " + words).finish();
    EXPECT_EQ(result.exit, exit);
    EXPECT_THAT(result.err, HasSubstr(error));
    EXPECT_EQ(test::readAll(page_), "before");
    EXPECT_EQ(test::readAll(recording_), whole);
    EXPECT_THAT(names(), testing::ElementsAre("a.tevcap", "foreign.tevcap", "page.html"));
  }
}

TEST_F(PlotCommand, MakesAPageOfWhatIsSound) {
  std::string bytes = test::readAll(recording_);
  bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 1);
  tree_.write("damaged.tevcap", bytes);
  const auto damaged =
      test::HostProcess("plot " + tree_.path("damaged.tevcap") + " --output " + page_).finish();
  EXPECT_EQ(damaged.exit, 1);
  EXPECT_THAT(damaged.err, HasSubstr("are damaged and were passed over"));
  EXPECT_THAT(test::readAll(page_), HasSubstr("are damaged and were passed over"));
  const auto empty = test::HostProcess("plot " + recording_ + " --to 1000 -o " + page_).finish();
  EXPECT_EQ(empty.exit, 1);
  EXPECT_THAT(empty.err, HasSubstr("there is no event to plot"));
}

TEST_F(PlotCommand, LeavesNothingAfterAnInterrupt) {
  test::writeRecording(tree_.path("long.tevcap"), 400'000);
  test::HostProcess host("plot " + tree_.path("long.tevcap") + " -o " + page_);
  while (names().size() < 3) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  host.signal(SIGINT);
  const auto result = host.finish();
  EXPECT_EQ(result.exit, 1);
  EXPECT_THAT(result.err, HasSubstr("interrupted"));
  EXPECT_THAT(names(), testing::ElementsAre("a.tevcap", "long.tevcap"));
}

}  // namespace
}  // namespace tev::host
