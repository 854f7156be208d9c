#include "tev/serializer.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "src/support/clock.h"
#include "tests/support/captured_log.h"

namespace {

using tev::test::CapturedLog;

struct DestroyTypeSystem {
  void operator()(tev_type_system_t* type_system) const { tev_destroy_type_system(type_system); }
};

constexpr std::uint8_t kSchema = 1;
constexpr std::uint8_t kTen = 0;    // a type of 10 bytes
constexpr std::uint8_t kEmpty = 1;  // of none
constexpr std::uint8_t kHuge = 2;   // of 2^56 bytes and more
constexpr std::uint8_t kMissing = 3;
constexpr std::uint64_t kTimestamp = 0x0102030405060708;

class SerializerTest : public testing::Test {
 protected:
  SerializerTest() : types_(tev_create_type_system()), buffer_(512, 0xEE) {
    tev_set_log_level(0);
    tev_type_system_add_schema(types_.get(), "first", 1, nullptr);
    tev_schema_t* const schema = tev_type_system_add_schema(types_.get(), "second", 1, nullptr);
    const tev_type_field_info_t ten = {"f", "", "uint8_t", 0, 10};
    tev_schema_add_type(schema, "ten", &ten, 1, nullptr);
    tev_schema_add_type(schema, "empty", nullptr, 0, nullptr);
    const tev_type_field_info_t one = {"f", "", "uint8_t", 0, 1};
    tev_schema_add_type(schema, "huge", &one, 1, nullptr);
    schema->types[kHuge]->size = UINT64_MAX / 254;
    for (std::size_t i = 0; i < events_.size(); ++i) events_[i] = static_cast<std::uint8_t>(i);
  }

  // A serializer over the first `capacity` bytes.
  tev_data_serializer_t serializer(std::uint64_t capacity, std::uint64_t used = 0) {
    return {types_.get(), buffer_.data(), capacity, used};
  }

  int write(tev_data_serializer_t& target, std::uint8_t type, std::uint8_t count) {
    return tev_data_serializer_write_events_ts(&target, kSchema, type, events_.data(), count,
                                               kTimestamp);
  }

  std::vector<std::uint8_t> bytes(std::size_t from, std::size_t count) const {
    return {buffer_.begin() + static_cast<std::ptrdiff_t>(from),
            buffer_.begin() + static_cast<std::ptrdiff_t>(from + count)};
  }

  std::unique_ptr<tev_type_system_t, DestroyTypeSystem> types_;
  std::vector<std::uint8_t> buffer_;
  std::array<std::uint8_t, 100> events_{};
};

TEST_F(SerializerTest, BlockBytes) {
  auto target = serializer(64, 3);
  EXPECT_EQ(write(target, kTen, 2), 2);
  EXPECT_EQ(target.used, 3u + 16u + 20u);
  EXPECT_EQ(bytes(0, 40), (std::vector<std::uint8_t>{
                              0xEE, 0xEE, 0xEE,                                // what was there
                              'T',  'E',  'V',  'E',                           // magic
                              0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01,  // time stamp
                              1,                                               // schema
                              0,    0,                                         // type
                              2,                                               // events
                              0,    1,    2,    3,    4,    5,    6,    7,    8,  9,   10,
                              11,   12,   13,   14,   15,   16,   17,   18,   19, 0xEE}));
}

// How many of five events are written for a capacity, with 7 bytes used already.
TEST_F(SerializerTest, RoomDecidesHowManyEventsAreWritten) {
  struct Row {
    std::uint64_t room;  // behind the header
    int written;
  };
  for (const Row& row : {Row{0, 0},
                         {9, 0},
                         {10, 1},
                         {19, 1},
                         {20, 2},
                         {25, 2},
                         {49, 4},
                         {50, 5},
                         {51, 5},
                         {400, 5}}) {
    std::fill(buffer_.begin(), buffer_.end(), 0xEE);
    auto target = serializer(7 + 16 + row.room, 7);
    EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kTen), row.room / 10);
    EXPECT_EQ(write(target, kTen, 5), row.written) << "room " << row.room;
    const auto size = static_cast<std::size_t>(row.written) * 10;
    EXPECT_EQ(target.used, row.written ? 7 + 16 + size : 7) << "room " << row.room;
    if (row.written) {
      EXPECT_EQ(buffer_[7 + 15], row.written);
    }
    const std::size_t end = row.written ? 7 + 16 + size : 7;
    EXPECT_EQ(bytes(end, 60), std::vector<std::uint8_t>(60, 0xEE)) << "room " << row.room;
  }
}

TEST_F(SerializerTest, NoRoomForAHeader) {
  struct Row {
    std::uint64_t capacity, used;
  };
  const Row rows[] = {{0, 0},
                      {15, 0},
                      {16, 0},
                      {100, 84},
                      {100, 85},
                      {100, 100},
                      {100, 200},
                      {UINT64_MAX, UINT64_MAX},
                      {UINT64_MAX, UINT64_MAX - 3},
                      {UINT64_MAX, UINT64_MAX - 16},
                      {8, UINT64_MAX - 3}};
  for (const Row& row : rows) {
    auto target = serializer(row.capacity, row.used);
    EXPECT_EQ(write(target, kTen, 1), 0) << row.capacity << " " << row.used;
    EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kTen), 0u);
    EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, kSchema, kTen, 1, nullptr), nullptr);
    EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 17), nullptr);
    EXPECT_EQ(target.used, row.used);
  }
  EXPECT_EQ(bytes(0, 512), std::vector<std::uint8_t>(512, 0xEE));
}

TEST_F(SerializerTest, SizesNearTheLimitOf64Bits) {
  auto target = serializer(500);
  EXPECT_EQ(write(target, kHuge, 255), 0);
  std::size_t data_size = 1;
  const CapturedLog log;
  EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, kSchema, kHuge, 255, &data_size),
            nullptr);
  EXPECT_EQ(data_size, 1u);
  EXPECT_EQ(target.used, 0u);
  target.capacity = UINT64_MAX;
  EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kHuge), 253u);
}

TEST_F(SerializerTest, NothingToWriteIsABlockWithoutEvents) {
  auto target = serializer(64);
  EXPECT_EQ(tev_data_serializer_write_events_ts(&target, kSchema, kTen, nullptr, 0, kTimestamp), 0);
  EXPECT_EQ(target.used, 16u);
  EXPECT_EQ(buffer_[15], 0);
  EXPECT_EQ(tev_data_serializer_write_events_ts(&target, kSchema, kTen, nullptr, 1, kTimestamp), 0);
  EXPECT_EQ(target.used, 16u);
}

TEST_F(SerializerTest, TypesWithoutSize) {
  struct Row {
    std::uint8_t schema, type;
  };
  for (const Row& row :
       {Row{kSchema, kEmpty}, {kSchema, kMissing}, {kSchema, 255}, {0, 0}, {2, 0}, {255, 255}}) {
    auto target = serializer(64);
    EXPECT_EQ(tev_data_serializer_write_events_ts(&target, row.schema, row.type, events_.data(), 1,
                                                  kTimestamp),
              0);
    EXPECT_EQ(tev_data_serializer_get_capacity(&target, row.schema, row.type), 0u);
    EXPECT_EQ(target.used, 0u);

    // The buffer call minds only that there is such a type: a block of nothing.
    const bool exists = row.schema == kSchema && row.type == kEmpty;
    std::size_t data_size = 1;
    EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, row.schema, row.type, 9, &data_size),
              exists ? buffer_.data() + 16 : nullptr);
    EXPECT_EQ(target.used, exists ? 16u : 0u);
    if (exists) {
      EXPECT_EQ(data_size, 0u);
      EXPECT_EQ(buffer_[15], 9);
    }
  }
}

TEST_F(SerializerTest, SlotsBeyondTheCountsAreNotLookedAt) {
  auto target = serializer(64);
  types_->schemas[kSchema]->num_types = kTen;
  EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kTen), 0u);
  types_->schemas[kSchema]->num_types = 3;
  types_->num_schemas = kSchema;
  EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kTen), 0u);
  types_->num_schemas = 2;
  EXPECT_EQ(tev_data_serializer_get_capacity(&target, kSchema, kTen), 4u);
}

// Runs once in a process: the second time, the ten seconds are not over.
TEST_F(SerializerTest, MissingSizeIsLoggedOncePerFunction) {
  auto target = serializer(64);
  const auto call_both = [&] {
    write(target, kEmpty, 1);
    tev_data_serializer_get_capacity(&target, kSchema, kEmpty);
  };
  call_both();  // a level that is off does not use the line up
  const CapturedLog log(TEV_LEVEL_ERROR);
  for (int i = 0; i < 5; ++i) call_both();
  const tev::test::LogLine line = {3, "schema second type index 1 size is zero"};
  EXPECT_EQ(log.lines(), (std::vector<tev::test::LogLine>{line, line}));
}

TEST_F(SerializerTest, EventsBufferIsAllOrNothing) {
  auto target = serializer(16 + 29);
  std::size_t data_size = 7;
  {
    const CapturedLog log;
    EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, kSchema, kTen, 3, &data_size),
              nullptr);
    EXPECT_EQ(log.lines(),
              (std::vector<tev::test::LogLine>{
                  {7,
                   "[Data Serializer][tev_data_serializer_get_events_buffer] Cannot get data "
                   "buffer. free_space = 29 < data_size = 30"}}));
  }
  EXPECT_EQ(data_size, 7u);
  EXPECT_EQ(target.used, 0u);

  target.capacity = 16 + 30;
  const std::uint64_t before = tev::support::realtimeUsec();
  EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, kSchema, kTen, 3, &data_size),
            buffer_.data() + 16);
  const std::uint64_t after = tev::support::realtimeUsec();
  EXPECT_EQ(data_size, 30u);
  EXPECT_EQ(target.used, 46u);
  std::uint64_t timestamp = 0;
  std::memcpy(&timestamp, buffer_.data() + 4, sizeof timestamp);
  EXPECT_GE(timestamp, before);
  EXPECT_LE(timestamp, after);
  EXPECT_EQ(bytes(12, 4), (std::vector<std::uint8_t>{1, 0, 0, 3}));
}

TEST_F(SerializerTest, HeaderOfAnEmptyBlockNeedsRoomToo) {
  for (const std::uint64_t capacity : {0u, 15u}) {
    auto target = serializer(capacity);
    EXPECT_EQ(tev_data_serializer_get_events_buffer(&target, kSchema, kEmpty, 1, nullptr), nullptr);
    EXPECT_EQ(target.used, 0u);
  }
  auto target = serializer(16);
  EXPECT_NE(tev_data_serializer_get_events_buffer(&target, kSchema, kEmpty, 1, nullptr), nullptr);
  EXPECT_EQ(target.used, 16u);
}

TEST_F(SerializerTest, ReserveTakesRawBytes) {
  auto target = serializer(20, 4);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 17), nullptr);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, SIZE_MAX), nullptr);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 16), buffer_.data() + 4);
  EXPECT_EQ(target.used, 20u);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 1), nullptr);
  EXPECT_EQ(bytes(0, 20), std::vector<std::uint8_t>(20, 0xEE));
}

TEST_F(SerializerTest, WriteWithoutATimeTakesTheCurrentOne) {
  auto target = serializer(64);
  const std::uint64_t before = tev::support::realtimeUsec();
  EXPECT_EQ(tev_data_serializer_write_events(&target, kSchema, kTen, events_.data(), 1), 1);
  std::uint64_t timestamp = 0;
  std::memcpy(&timestamp, buffer_.data() + 4, sizeof timestamp);
  EXPECT_GE(timestamp, before);
  EXPECT_LE(timestamp, tev::support::realtimeUsec());
}

TEST_F(SerializerTest, NullsAreNoRoom) {
  EXPECT_EQ(tev_data_serializer_write_events(nullptr, 0, 0, events_.data(), 1), 0);
  EXPECT_EQ(tev_data_serializer_get_events_buffer(nullptr, 0, 0, 1, nullptr), nullptr);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(nullptr, 1), nullptr);
  EXPECT_EQ(tev_data_serializer_get_capacity(nullptr, 0, 0), 0u);
  tev_data_serializer_t hollow = {nullptr, nullptr, 100, 0};
  EXPECT_EQ(write(hollow, kTen, 1), 0);
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&hollow, 1), nullptr);
  hollow.type_system = types_.get();
  EXPECT_EQ(write(hollow, kTen, 1), 0);
}

TEST(Magic, FillCopyAndMatch) {
  char magic[4];
  tev_magic_value_fill(magic, 'E');
  EXPECT_EQ(std::string(magic, 4), "TEVE");
  EXPECT_TRUE(tev_magic_value_match_type(magic, 'E'));
  EXPECT_FALSE(tev_magic_value_match_type(magic, 'e'));

  char copy[4];
  tev_magic_value_copy(copy, magic);
  EXPECT_EQ(std::string(copy, 4), "TEVE");

  tev_magic_value_fill_lower(magic, 'E');
  EXPECT_EQ(std::string(magic, 4), "teve");
  EXPECT_FALSE(tev_magic_value_match_type(magic, 'e'));
  EXPECT_FALSE(tev_magic_value_match_type(magic, 'E'));
}

TEST(Magic, MatchComparesThreeAsTextAndTheFourth) {
  struct Row {
    const char* a;
    const char* b;
    bool match;
  };
  const Row rows[] = {{"TEVE", "TEVE", true},   {"TEVE", "TEVF", false},  {"TEVE", "tevE", false},
                      {"abcx", "abcx", true},   {"T\0VE", "T\0XE", true}, {"T\0VE", "TX\0E", false},
                      {"T\0VE", "T\0VF", false}};
  for (const Row& row : rows)
    EXPECT_EQ(tev_magic_value_match(row.a, row.b), row.match) << row.a << " " << row.b;
}

}  // namespace
