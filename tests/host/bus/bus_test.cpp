// Batches on their way to a message bus: none is lost or repeated without a count.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>

#include "host/bus/batcher.h"
#include "host/bus/memory_store.h"
#include "host/bus/sender.h"
#include "host/bus/spool_and_memory.h"
#include "host/bus/undelivered.h"
#include "host/support/errors.h"
#include "tests/host/sample_types.h"
#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

namespace fs = std::filesystem;
using std::chrono::milliseconds;

IncomingMessage asIncoming(const OutgoingMessage& message) {
  IncomingMessage incoming{message.key, {}, message.value};
  for (const auto& [name, value] : message.headers) incoming.headers.emplace_back(name, value);
  return incoming;
}

// Makes batches of one event of 12 bytes, whose value is its number.
class Events {
 public:
  Events() {
    types_.add("t", {{"device", nullptr, "char", 0, 4}, {"rx", nullptr, "uint64_t", 0, 1}},
               {"device"});
    schema_.emplace(SchemaView::fromTypeSystem(*types_));
  }

  const SchemaView& schema() const { return *schema_; }

  std::vector<Batch> batches(std::size_t count) {
    std::vector<Batch> all;
    Batcher batcher({"node", 7}, *schema_, [&](Batch one) { all.push_back(std::move(one)); });
    for (std::size_t i = 0; i < count; ++i) {
      batcher.add(test::Bytes().block(1000 + i, 0, 0, 1).text("d0", 4).add(std::uint64_t{i}));
      batcher.close();
    }
    return all;
  }

 private:
  test::SampleTypes types_;
  std::optional<SchemaView> schema_;
};

TEST(Message, IsReadAsItWasWritten) {
  Events events;
  MessageWriter writer;
  Batch batch = events.batches(1)[0];
  for (const std::size_t repeats : {1U, 500U}) {  // stored as it is, and packed
    const std::vector<std::uint8_t> one = batch.blocks;
    for (std::size_t i = 1; i < repeats; ++i)
      batch.blocks.insert(batch.blocks.end(), one.begin(), one.end());
    batch.events = repeats;
    batch.first = 1'000'000'000'000;
    const OutgoingMessage message = writer.write(batch);
    const MessageHead head = readHead(asIncoming(message));
    EXPECT_EQ(head.run, batch.run);
    EXPECT_EQ(head.schema_ids, batch.schemas->ids);
    EXPECT_EQ(head.first, batch.first);
    EXPECT_EQ(head.events, batch.events);
    EXPECT_EQ(head.codec, repeats == 1 ? BatchCodec::none : BatchCodec::zstd);
    std::vector<std::uint8_t> blocks;
    BlockReader().read(message.value, head.codec, head.size, blocks);
    EXPECT_EQ(blocks, batch.blocks);
  }
}

TEST(Message, OthersAreRefused) {
  Events events;
  MessageWriter writer;
  const OutgoingMessage sound = writer.write(events.batches(1)[0]);
  const struct {
    const char* header;
    const char* value;
    const char* reason;
  } cases[] = {
      {"tev-version", "2", "version 2"},
      {"tev-version", "", "not a number"},
      {"tev-source", "other", "its key"},
      {"tev-source", "", "0 bytes"},
      {"tev-run", "7", "16 hexadecimal"},
      {"tev-run", "000000000000000g", "16 hexadecimal"},
      {"tev-schemas", "", "32 hexadecimal"},
      {"tev-first", "-1", "not a number"},
      {"tev-first", "18446744073709551615", "too large"},
      {"tev-count", "0", "0 events"},
      {"tev-count", "1000", "1000 events"},
      {"tev-codec", "gzip", "gzip"},
      {"tev-codec", "zstd", "unpacked"},
      {"tev-size", "67108865", "1 to"},
      {"tev-size", "29", "wrong length"},
  };
  for (const auto& one : cases) {
    OutgoingMessage message = sound;
    for (auto& [name, value] : message.headers)
      if (name == one.header) value = one.value;
    std::vector<std::uint8_t> blocks;
    try {
      const MessageHead head = readHead(asIncoming(message));
      BlockReader().read(message.value, head.codec, head.size, blocks);
      ADD_FAILURE() << one.header << "=" << one.value;
    } catch (const RunError& error) {
      EXPECT_NE(std::string(error.what()).find(one.reason), std::string::npos) << error.what();
    }
  }
}

// A bus that fails at random, and keeps what it takes.
class Bus {
 public:
  explicit Bus(unsigned seed) : random(seed) {}

  bool happens(int percent) { return random() % 100 < static_cast<unsigned>(percent); }

  std::minstd_rand random;
  std::atomic<bool> is_sound = false;  // set by the test while the sender's thread works
  int forgotten = 0;                   // messages that it does not keep, and asks for again
  std::vector<std::uint64_t> kept;     // numbers of the events
  std::set<std::string> schemas;
};

class UnreliablePublisher final : public Publisher {
 public:
  explicit UnreliablePublisher(Bus& bus) : bus_(bus) {}

  std::string name() const override { return "the brokers"; }

  bool send(std::uint64_t number, const OutgoingMessage& message) override {
    if (has_failed_ || waiting_.size() > 5 || (!bus_.is_sound && bus_.happens(20))) return false;
    waiting_.emplace_back(number, readHead(asIncoming(message)).first);
    return true;
  }

  bool sendSchema(std::uint64_t number, const std::string& id, const std::string&) override {
    bus_.schemas.insert(id);
    waiting_.emplace_back(number, std::nullopt);
    return true;
  }

  void poll(milliseconds, const Report& report) override {
    while (!waiting_.empty() && (bus_.is_sound || bus_.happens(60))) {
      const auto [number, event] = waiting_.front();
      waiting_.pop_front();
      if (event && bus_.forgotten > 0) {
        --bus_.forgotten;
        report({number, DeliveryReport::Outcome::unknown, "forgotten"});
        return;
      }
      if (event) bus_.kept.push_back(*event);
      if (!bus_.is_sound && bus_.happens(5)) {  // kept, and the client does not hear of it
        has_failed_ = true;
        return;
      }
      report({number, DeliveryReport::Outcome::stored, ""});
    }
  }

  bool isConnected() const override { return true; }
  bool hasFailed() const override { return has_failed_; }
  void restart() override {
    has_failed_ = false;
    waiting_.clear();
  }

 private:
  Bus& bus_;
  std::deque<std::pair<std::uint64_t, std::optional<std::uint64_t>>> waiting_;
  bool has_failed_ = false;
};

// What a reader takes that drops repeats.
std::vector<std::uint64_t> withoutRepeats(const std::vector<std::uint64_t>& kept) {
  std::vector<std::uint64_t> taken;
  for (const std::uint64_t one : kept)
    if (taken.empty() || one > taken.back()) taken.push_back(one);
  return taken;
}

// A disk on which files may not be larger.
class FullDisk {
 public:
  explicit FullDisk(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FullDisk() {
    setrlimit(RLIMIT_FSIZE, &before_);
    signal(SIGXFSZ, handler_);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;

 private:
  rlimit before_{};
  sighandler_t handler_ = signal(SIGXFSZ, SIG_IGN);  // a write fails instead
};

TEST(Sender, DeliversEachBatchOnceOrCountsIt) {
  for (unsigned seed = 1; seed <= 30; ++seed) {
    SCOPED_TRACE(seed);
    Events events;
    test::TempTree tree;
    Bus bus(seed);
    bus.forgotten = seed == 5 ? 1 : 0;
    std::set<std::uint64_t> dropped;
    const auto drop = [&](const Batch& batch) { EXPECT_TRUE(dropped.insert(batch.first).second); };
    std::unique_ptr<BatchStore> store;
    if (seed % 2 == 0)
      store = std::make_unique<MemoryStore>(seed % 4 == 0 ? 1 << 20 : 2000, drop);
    else
      store = std::make_unique<SpoolAndMemory>(SpoolOptions{tree.path("spool")}, CaptureHead(),
                                               1 << 20, drop);
    std::optional<FullDisk> full;
    if (seed % 4 == 1) full.emplace(seed * 60);  // files without a batch, and with few
    Sender sender(std::make_unique<UnreliablePublisher>(bus), std::move(store), drop);
    for (Batch& one : events.batches(300)) sender.push(std::move(one));
    std::this_thread::sleep_for(milliseconds(2));
    if (seed % 8 == 1) full.reset();
    bus.is_sound = true;
    sender.finish(milliseconds(20'000), [] { return false; });
    const std::vector<std::uint64_t> taken = withoutRepeats(bus.kept);
    EXPECT_EQ(taken.size() + dropped.size(), 300U);
    EXPECT_EQ(std::set(bus.kept.begin(), bus.kept.end()).size(), taken.size()) << "order";
    EXPECT_EQ(dropped.empty(), seed % 4 != 2);  // only the small memory has no room
    EXPECT_EQ(sender.totals().events, taken.size());
    EXPECT_EQ(bus.schemas.size(), 1U);
    if (seed % 2 != 0) {  // only the lock is left
      EXPECT_EQ(std::distance(fs::directory_iterator(tree.path("spool")), {}), 1);
    }
  }
}

class SpoolFiles : public testing::Test {
 protected:
  std::unique_ptr<Spool> open(std::uint64_t most_bytes = 1 << 30) {
    return std::make_unique<Spool>(SpoolOptions{folder_, most_bytes}, CaptureHead(),
                                   [this](const Batch& one) { undelivered_.add(one); });
  }

  static std::vector<std::uint64_t> readAll(BatchStore& store) {
    std::vector<std::uint64_t> numbers;
    while (const auto one = store.next()) {
      EXPECT_EQ(one->batch.run.source, "node");
      numbers.push_back(one->batch.first);
      store.done(one->number);
    }
    return numbers;
  }

  std::string onlyFile() const {
    for (const auto& entry : fs::directory_iterator(folder_))
      if (entry.path().extension() == ".tevcap") return entry.path().string();
    return "";
  }

  Events events_;
  test::TempTree tree_;
  const std::string folder_ = tree_.path("spool");
  Undelivered undelivered_;
};

TEST_F(SpoolFiles, SurviveAKillAtAnyByte) {
  for (Batch& one : events_.batches(3)) open()->push(std::move(one));  // three killed runs
  {
    const auto spool = open();
    EXPECT_THROW(open(), RunError);  // it is in use
    for (Batch& one : events_.batches(2)) spool->push(std::move(one));
    EXPECT_EQ(spool->next()->batch.first, 0U);  // handed out, not acknowledged
  }
  const auto whole = open();
  EXPECT_FALSE(whole->isEmpty());
  EXPECT_EQ(readAll(*whole), (std::vector<std::uint64_t>{0, 1, 2, 0, 1}));
  EXPECT_TRUE(whole->isEmpty());
  EXPECT_EQ(onlyFile(), "");
  for (Batch& one : events_.batches(3)) whole->push(std::move(one));
  const std::string path = onlyFile();
  std::ifstream stream(path, std::ios::binary);
  const std::string bytes(std::istreambuf_iterator<char>(stream), {});
  std::set<std::size_t> counts;
  for (std::size_t missing = 0; missing <= bytes.size(); missing += 5) {
    test::TempTree tree;
    fs::create_directory(tree.path("cut"));
    std::ofstream(tree.path("cut/000000000001.tevcap"), std::ios::binary)
        .write(bytes.data(), static_cast<std::streamsize>(bytes.size() - missing));
    Spool cut({tree.path("cut")}, CaptureHead(), [](const Batch&) {});
    const auto numbers = readAll(cut);
    for (std::size_t i = 0; i < numbers.size(); ++i) EXPECT_EQ(numbers[i], i);
    counts.insert(numbers.size());
    EXPECT_TRUE(cut.isEmpty());
  }
  EXPECT_EQ(counts, (std::set<std::size_t>{0, 1, 2, 3}));
}

TEST_F(SpoolFiles, AreGivenUpWithACount) {
  const std::vector<Batch> batches = events_.batches(40'000);  // three files
  const auto spool = open(std::uint64_t{5} << 20);
  for (const Batch& one : batches) spool->push(one);
  const std::vector<std::uint64_t> rest = readAll(*spool);
  EXPECT_GT(undelivered_.events(), 10'000U);
  EXPECT_EQ(rest.size() + undelivered_.events(), batches.size());
  EXPECT_EQ(rest.front(), undelivered_.events());  // the oldest are given up
  std::vector<DeviceCounts> counts{{.device = "d0"}, {.device = "d1"}};
  undelivered_.addTo(counts);
  EXPECT_EQ(counts[0].undelivered, undelivered_.events());
  EXPECT_EQ(counts[1].undelivered, 0U);
}

TEST_F(SpoolFiles, HaveDamagedEventsCounted) {
  for (Batch& one : events_.batches(1)) open()->push(std::move(one));
  const std::string path = onlyFile();
  const auto one = fs::file_size(path);
  fs::remove(path);
  {
    const auto spool = open();
    for (Batch& batch : events_.batches(5)) spool->push(std::move(batch));
  }
  std::fstream file(onlyFile(), std::ios::in | std::ios::out | std::ios::binary);
  file.seekp(static_cast<std::streamoff>(one) + 100).put('x').put('y');
  file.close();
  const auto numbers = readAll(*open());
  EXPECT_LT(numbers.size(), 5U);
  EXPECT_EQ(numbers.size() + undelivered_.events(), 5U);
}

}  // namespace
}  // namespace tev::host
