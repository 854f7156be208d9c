// A model of a partition's log: whatever happens to the workers, each event of the log is in the
// folder once.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "host/capture/capture_source.h"
#include "host/fleet/parquet_worker.h"
#include "host/fleet/stream_worker.h"
#include "host/support/errors.h"
#include "tests/host/fleet/fake_bus.h"
#include "tests/host/fleet/file_faults.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;
using test::Bytes;
using test::FileFaults;
using testing::HasSubstr;

constexpr std::uint64_t kBegin = 1'795'384'500'000'000;  // 2026-11-22T21:55:00Z
constexpr RangeLimits kLimits{.bytes = 4000, .messages = 12, .seconds = 240};

// Contents by the names in the folder.
using Files = std::map<std::string, std::string>;

void expectSame(const Files& files, const Files& wanted, int operation = 0) {
  for (const auto& [name, text] : wanted) {
    const auto found = files.find(name);
    ASSERT_TRUE(found != files.end() && found->second == text)
        << name << ", operation " << operation;
  }
  for (const auto& [name, text] : files)
    ASSERT_TRUE(wanted.contains(name)) << name << ", operation " << operation;
}

Files filesOf(const fs::path& folder) {
  Files files;
  for (const auto& entry : fs::recursive_directory_iterator(folder))
    if (entry.is_regular_file())
      files[fs::relative(entry.path(), folder)] = test::readAll(entry.path());
  return files;
}

std::string schemaOf(test::FakeBus& bus, unsigned short width) {
  test::SampleTypes types;
  const std::string name = "port_" + std::to_string(width);
  types.add(name, {{"device", nullptr, "char", 0, width}, {"rx", nullptr, "uint32_t", 0, 1}},
            {"device"});
  types.add(name + "_plane",
            {{"device", nullptr, "char", 0, width},
             {"plane", nullptr, "uint8_t", 0, 1},
             {"source", nullptr, "uint32_t", 0, 1}},
            {"device", "plane"});
  return bus.publish(types);
}

// What a source sends: samples of a device and of a plane, in blocks of one to three events.
class Publisher {
 public:
  Publisher(test::FakeBus& bus, std::string name, unsigned short width)
      : bus_(bus), width_(width), id_(schemaOf(bus, width)), run_{std::move(name), 0} {}

  void start(std::uint64_t run) {
    run_.start = run;
    next_ = 0;
  }

  // A batch of random length. Its events are remembered as those that must arrive.
  void send(std::mt19937& random, std::set<std::tuple<RunId, std::uint64_t>>& arriving) {
    blocks_.clear();
    first_ = next_;
    for (int i = static_cast<int>(random() % 6); i >= 0; --i) {
      const auto events = static_cast<std::uint8_t>(1 + random() % 3);
      const bool is_plane = random() % 2 == 0;
      time_ += random() % 20'000'000;
      blocks_.block(time_, 0, is_plane, events);
      for (int n = 0; n < events; ++n) {
        blocks_.text("dev", width_);
        if (is_plane) blocks_.u8({1});
        blocks_.add(static_cast<std::uint32_t>(next_));
        arriving.emplace(run_, next_++);
      }
    }
    repeat();
  }
  void repeat() { bus_.send(run_, first_, next_ - first_, blocks_, id_); }

  // Events that never reach the bus.
  void lose(std::uint64_t events) { next_ += events; }

 private:
  test::FakeBus& bus_;
  unsigned short width_;
  std::string id_;
  RunId run_;
  std::uint64_t first_ = 0;
  std::uint64_t next_ = 0;
  std::uint64_t time_ = kBegin;
  Bytes blocks_;
};

// A worker with all that it needs.
struct Worker {
  Worker(test::FakeBus& bus, const std::string& path)
      : schemas(bus, std::chrono::milliseconds(0)),
        intake(schemas),
        folder(path, "t", true),
        subscription(bus),
        worker(folder, folder.settle(kLimits), intake, subscription,
               [this](auto) { return ++failures < 3; }) {
    subscription.join(worker);
  }
  void poll(std::size_t most) { subscription.poll(worker, most, {}); }

  int failures = 0;
  SchemaCache schemas;
  Intake intake;
  RangeFolder folder;
  test::FakeSubscription subscription;
  ParquetWorker worker;
};

class FleetFolder : public testing::Test {
 protected:
  FleetFolder() {
    testing::internal::CaptureStderr();
    FileFaults::forces_out = false;
    std::vector<Publisher> publishers;
    for (unsigned short i = 0; i < 4; ++i)
      publishers.emplace_back(bus_, "node " + std::to_string(i),
                              static_cast<unsigned short>(4 + i % 2));
    std::mt19937 random(5);
    for (int i = 0; i < 80; ++i) {
      Publisher& one = publishers[random() % publishers.size()];
      switch (random() % 12) {
        case 0:
          one.lose(5);
          break;
        case 1:
          one.start(random());
          break;
        case 2:
          if (const std::size_t sent = bus_.log.size(); sent > 0)
            bus_.log.push_back(bus_.log[sent - 1 - random() % std::min<std::size_t>(sent, 20)]);
          break;
        case 3:
          bus_.log.push_back({"not a batch", {}, {}});
          break;
        default:
          one.send(random, arriving_);
      }
    }
    // Enough messages to end the last range.
    for (std::uint64_t i = 0; i < kLimits.messages + 1; ++i) bus_.log.push_back({"end", {}, {}});
    runTo(reference_.path("f"));
    wanted_ = filesOf(reference_.path("f"));
  }

  ~FleetFolder() override {
    FileFaults::forces_out = true;
    if (is_captured_) testing::internal::GetCapturedStderr();
  }

  std::string said() {
    is_captured_ = false;
    return testing::internal::GetCapturedStderr();
  }

  void runTo(const std::string& path) {
    bus_.committed = 0;
    Worker worker(bus_, path);
    worker.poll(bus_.log.size());
  }

  // In a process of its own. Returns whether it was not killed.
  bool runIsolated(const std::string& path, int until_kill) {
    const pid_t child = fork();
    if (child == 0) {
      FileFaults::until_kill = until_kill;
      runTo(path);
      _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
  }

  test::FakeBus bus_;
  std::set<std::tuple<RunId, std::uint64_t>> arriving_;
  test::TempTree reference_;
  Files wanted_;
  bool is_captured_ = true;
};

// The sum over all `done` files.
RangeRecord sumOf(const Files& files) {
  RangeRecord sum;
  for (const auto& [name, text] : files) {
    if (!name.ends_with(".done")) continue;
    Sequences sequences;
    const RangeRecord one = recordOf(text, sequences);
    sum.counts += one.counts;
    sum.files.insert(sum.files.end(), one.files.begin(), one.files.end());
    sum.end = std::max(sum.end, one.end);
  }
  return sum;
}

TEST_F(FleetFolder, HasEachEventOnce) {
  const RangeRecord sum = sumOf(wanted_);
  std::uint64_t rows = 0;
  for (const auto& file : sum.files) {
    rows += file.rows;
    EXPECT_TRUE(wanted_.contains(file.name)) << file.name;
  }
  EXPECT_EQ(rows, arriving_.size());
  EXPECT_EQ(sum.counts.events, arriving_.size());
  EXPECT_GT(sum.counts.gaps, 0u);
  EXPECT_GT(sum.counts.repeats, 0u);
  EXPECT_GT(sum.counts.rejected[0], 0u);
  EXPECT_EQ(sum.counts.messages, static_cast<std::uint64_t>(sum.end));
  EXPECT_TRUE(std::ranges::any_of(wanted_, [](const auto& file) {
    return file.first.starts_with("hour=2026-11-22T22/type=plane/t+0+");
  }));
}

TEST_F(FleetFolder, HasNoEventsOfTheFuture) {
  test::TempTree tree;
  bus_.clock_usec = kBegin - kHourUsec + 300'000'000;
  runTo(tree.path("f"));
  const FleetCounts counts = sumOf(filesOf(tree.path("f"))).counts;
  EXPECT_GT(counts.rejected[static_cast<std::size_t>(Cause::clock)], 0u);
  EXPECT_GT(counts.events, 0u);
  EXPECT_LT(counts.events, arriving_.size());
}

TEST_F(FleetFolder, IsTheSameWhereverAWorkerIsKilled) {
  FileFaults::done = 0;
  test::TempTree counted;
  runTo(counted.path("f"));
  const int operations = FileFaults::done;
  ASSERT_GT(operations, 50);
  for (int i = 1; i <= operations; ++i) {
    test::TempTree tree;
    ASSERT_FALSE(runIsolated(tree.path("f"), i));
    ASSERT_TRUE(runIsolated(tree.path("f"), 0));
    expectSame(filesOf(tree.path("f")), wanted_, i);
  }
}

TEST_F(FleetFolder, IsTheSameWhenWritingFails) {
  for (int i = 1; i < 40; i += 3) {
    test::TempTree tree;
    bus_.committed = 0;
    Worker worker(bus_, tree.path("f"));
    FileFaults::until_failure = i;
    worker.poll(bus_.log.size());
    FileFaults::until_failure = 0;
    expectSame(filesOf(tree.path("f")), wanted_, i);
    ASSERT_EQ(worker.failures, 1);
  }
  EXPECT_THAT(said(), HasSubstr("No space left on device; trying again, nothing is lost"));
}

TEST_F(FleetFolder, IsTheSameWithWorkersThatComeAndGo) {
  std::mt19937 random(7);
  for (int turn = 0; turn < 20; ++turn) {
    test::TempTree tree;
    bus_.committed = 0;
    // The last one owns the partition. The others have lost it and do not know.
    std::vector<std::unique_ptr<Worker>> workers;
    const auto end = static_cast<std::int64_t>(bus_.log.size());
    while (workers.empty() || workers.back()->subscription.position < end) {
      if (workers.empty() || random() % 20 == 0) {
        if (!workers.empty()) workers.back()->subscription.is_refused = true;
        workers.push_back(std::make_unique<Worker>(bus_, tree.path("f")));
      }
      workers[random() % workers.size()]->poll(random() % 8);
    }
    expectSame(filesOf(tree.path("f")), wanted_);
    workers.back()->subscription.leave();
    EXPECT_EQ(workers.back()->worker.memory(), 0u);
  }
}

TEST_F(FleetFolder, TellsWhatIsWrongWithIt) {
  const std::string path = reference_.path("f");
  std::vector<std::string> done;
  for (const auto& [name, text] : wanted_)
    if (name.ends_with(".done")) done.push_back(path + "/" + name);
  const RangeFolder folder(path, "t", true);
  fs::remove(done[1]);
  EXPECT_THAT(folder.recover(0).notes,
              testing::ElementsAre(HasSubstr("are missing in the folder")));

  const std::string text = test::readAll(done.back());
  const auto problemWith = [&](const std::string& changed) {
    std::ofstream(done.back()) << changed;
    try {
      folder.recover(0);
    } catch (const RunError& error) {
      return std::string(error.what());
    }
    return std::string();
  };
  EXPECT_EQ(problemWith(text), "");
  for (std::size_t i = 0; i < text.size(); i += 7) {
    std::string changed = text;
    changed[i] = static_cast<char>(changed[i] ^ 1);
    ASSERT_THAT(problemWith(changed), HasSubstr(".done cannot be used: it ")) << i;
  }
  EXPECT_THAT(problemWith("tev-range 2" + text.substr(11)), HasSubstr("it has version 2"));
  EXPECT_THAT(problemWith(text.substr(0, text.size() / 2)), HasSubstr("it is damaged"));

  // Limits that are given later do not change where ranges end.
  EXPECT_EQ(RangeFolder(path, "t", true).settle({1, 1, 1}), kLimits);
  // A topic that was made anew.
  std::ofstream(done.back()) << text;
  Worker worker(bus_, path);
  worker.subscription.position = 0;
  EXPECT_THROW(worker.poll(1), RunError);
}

TEST(FleetSequences, KnowWhatWasTaken) {
  Sequences sequences(2);
  const auto head = [](const char* source, std::uint64_t run, std::uint64_t first,
                       std::uint64_t events) {
    MessageHead made;
    made.run = {source, run};
    made.first = first;
    made.events = events;
    return made;
  };
  using Kind = Arrival::Kind;
  struct Step {
    const char* source;
    std::uint64_t run, first, events;
    Kind kind;
    std::uint64_t lost, taken;
  };
  constexpr Step kSteps[] = {
      {"a", 1, 0, 10, Kind::next, 0, 0},    {"a", 1, 10, 5, Kind::next, 0, 0},
      {"a", 1, 10, 5, Kind::repeat, 0, 5},  {"a", 1, 12, 5, Kind::overlap, 0, 3},
      {"a", 1, 20, 1, Kind::gap, 3, 0},     {"a", 2, 4, 1, Kind::gap, 4, 0},
      {"a", 1, 21, 1, Kind::next, 0, 0},    {"a", 3, 0, 1, Kind::next, 0, 0},
      {"a", 4, 0, 1, Kind::next, 0, 0},     {"a", 5, 0, 1, Kind::next, 0, 0},  // forgets run 2
      {"a", 1, 0, 22, Kind::repeat, 0, 22}, {"a", 2, 5, 1, Kind::gap, 5, 0},
      {"b", 1, 0, 1, Kind::next, 0, 0},     {"c", 1, 0, 1, Kind::next, 0, 0},  // forgets a
      {"a", 5, 0, 1, Kind::next, 0, 0},
  };
  for (const Step& step : kSteps) {
    Sequences restored(2);
    sequences.forEach([&](const RunId& run, std::uint64_t next) { restored.restore(run, next); });
    const MessageHead one = head(step.source, step.run, step.first, step.events);
    for (const Sequences* const state : {&sequences, &restored}) {
      const Arrival arrival = state->judge(one);
      ASSERT_EQ(arrival.kind, step.kind) << &step - kSteps;
      ASSERT_EQ(arrival.lost, step.lost) << &step - kSteps;
      ASSERT_EQ(arrival.taken, step.taken) << &step - kSteps;
    }
    if (step.kind != Kind::repeat) sequences = std::move(restored), sequences.take(one);
  }
  EXPECT_EQ(sequences.sources(), 2u);
}

TEST(FleetSchemas, AreChecked) {
  test::FakeBus bus;
  const std::string good = schemaOf(bus, 4);
  const std::string other = schemaOf(bus, 5);
  const std::string broken(32, 'b');
  const std::string unknown(32, 'c');
  bus.texts[broken] = bus.texts[other];
  SchemaCache cache(bus, std::chrono::milliseconds(0));
  const auto causeOf = [&](const std::vector<std::string>& ids) {
    try {
      cache.of(ids);
    } catch (const Rejected& rejected) {
      return std::string(nameOf(rejected.cause()));
    }
    return std::string();
  };
  EXPECT_EQ(causeOf({good, std::string(32, '0'), other}), "");
  EXPECT_EQ(causeOf({good, broken}), "broken schema");
  EXPECT_EQ(causeOf({unknown}), "unknown schema");
  bus.texts[unknown] = "{";  // it was published later
  EXPECT_EQ(causeOf({unknown}), "broken schema");
  EXPECT_EQ(cache.of({good}), cache.of({good}));
  EXPECT_NE(cache.of({good})->layouts[0], cache.of({other})->layouts[0]);
  EXPECT_EQ(cache.of({good})->layouts[0], cache.of({other, good})->layouts[2]);
}

TEST(FleetStreams, WriteWhatIsThere) {
  test::FakeBus bus;
  const std::string id = schemaOf(bus, 4);
  const RunId run{"a,b", 0x1f};
  Bytes blocks;
  blocks.block(kBegin, 0, 0, 2)
      .text("dev", 4)
      .add(std::uint32_t{7})
      .text("dev", 4)
      .add(std::uint32_t{8});
  bus.send(run, 0, 2, blocks, id);
  bus.send(run, 1, 2, blocks, id);  // begins with an event that was taken
  test::TempTree tree;
  for (const auto& sink : {makeJsonlSink(tree.path("lines")), makeCsvSink(tree.path("csv")),
                           makeCaptureSink(tree.path("captures"))}) {
    bus.committed = 0;
    SchemaCache schemas(bus, std::chrono::milliseconds(0));
    Intake intake(schemas);
    test::FakeSubscription subscription(bus);
    StreamWorker worker(*sink, intake, subscription);
    subscription.join(worker);
    subscription.poll(worker, 2, {});
    EXPECT_EQ(bus.committed, 0);
    worker.update();
    EXPECT_EQ(bus.committed, 2);
    EXPECT_EQ(worker.counts().events, 3u);
  }
  const std::string begin = R"({"source":"a,b","run":"000000000000001f","sequence":)";
  const std::string rest = R"(,"timestamp":1795384500000000,"type":"port_4","device":"dev","rx":)";
  EXPECT_EQ(test::readAll(tree.path("lines")), begin + "0" + rest + "7}\n" + begin + "1" + rest +
                                                   "8}\n" + begin + "2" + rest + "8}\n");
  const Files tables = filesOf(tree.path("csv"));
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables.begin()->second,
            "source,run,sequence,timestamp,type,device,rx\n"
            "\"a,b\",000000000000001f,0,1795384500000000,port_4,dev,7\n"
            "\"a,b\",000000000000001f,1,1795384500000000,port_4,dev,8\n"
            "\"a,b\",000000000000001f,2,1795384500000000,port_4,dev,8\n");
  const std::string name = "a%2cb+000000000000001f+00000000000000000000.tevcap";
  CaptureSource capture({tree.path("captures/" + name)});
  std::size_t bytes = 0;
  while (capture.fetch([&](Blocks some) { bytes += some.size(); }, [] { return false; })) {
  }
  EXPECT_EQ(bytes, 2 * blocks.size() - 8);
}

}  // namespace
}  // namespace tev::host
