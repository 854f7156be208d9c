#include "tev/serializer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>

#include "src/support/clock.h"
#include "tests/support/captured_log.h"
#include "tests/support/owned.h"

namespace {

using namespace tev::test;

constexpr std::uint8_t kSchema = 1;
constexpr std::uint8_t kTen = 0;    // a type of 10 bytes
constexpr std::uint8_t kEmpty = 1;  // of none
constexpr std::uint8_t kHuge = 2;   // of 2^56 bytes and more
constexpr std::uint8_t kMissing = 3;
constexpr std::uint64_t kTimestamp = 0x0102030405060708;

class SerializerTest : public testing::Test {
 protected:
  SerializerTest() : types_(tev_create_type_system()), buffer_(512, '\xEE'), events_(100, '\0') {
    tev_set_log_level(0);
    tev_type_system_add_schema(types_.get(), "first", 1, nullptr);
    tev_schema_t* const schema = tev_type_system_add_schema(types_.get(), "second", 1, nullptr);
    const tev_type_field_info_t ten = {"f", "", "uint8_t", 0, 10};
    tev_schema_add_type(schema, "ten", &ten, 1, nullptr);
    tev_schema_add_type(schema, "empty", nullptr, 0, nullptr);
    tev_schema_add_type(schema, "huge", &ten, 1, nullptr);
    schema->types[kHuge]->size = UINT64_MAX / 254;
    std::iota(events_.begin(), events_.end(), '\0');
  }

  // A serializer over the first `capacity` bytes.
  tev_data_serializer_t serializer(std::uint64_t capacity, std::uint64_t used = 0) {
    return {types_.get(), reinterpret_cast<std::uint8_t*>(buffer_.data()), capacity, used};
  }

  int write(tev_data_serializer_t& target, std::uint8_t type, std::uint8_t count) {
    return tev_data_serializer_write_events_ts(&target, kSchema, type, events_.data(), count,
                                               kTimestamp);
  }

  std::uint64_t capacityOf(const tev_data_serializer_t& target, std::uint8_t type) {
    return tev_data_serializer_get_capacity(&target, kSchema, type);
  }

  // The offset of the events from the beginning of the memory; -1 when they do not fit.
  std::ptrdiff_t reserve(tev_data_serializer_t& target, std::uint8_t type, std::uint8_t count,
                         std::size_t* size = nullptr) {
    const auto* at = static_cast<const char*>(
        tev_data_serializer_get_events_buffer(&target, kSchema, type, count, size));
    return at ? at - buffer_.data() : -1;
  }

  Owned<tev_type_system_t, tev_destroy_type_system> types_;
  std::string buffer_;
  std::string events_;
};

TEST_F(SerializerTest, BlockBytes) {
  auto target = serializer(64, 3);
  EXPECT_EQ(write(target, kTen, 2), 2);
  EXPECT_EQ(target.used, 3u + 16u + 20u);
  const std::string expected(
      "\xEE\xEE\xEE"
      "TEVE"
      "\x08\x07\x06\x05\x04\x03\x02\x01"  // before, magic, time
      "\x01\x00\x00\x02"                  // schema, type, events
      "\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F\x10\x11\x12\x13\xEE",
      40);
  EXPECT_EQ(buffer_.substr(0, 40), expected);
}

// With 7 bytes already used, for different amounts of room after the header.
TEST_F(SerializerTest, RoomDecidesHowManyEventsAreWritten) {
  for (const std::uint64_t room : {0u, 9u, 10u, 19u, 20u, 51u})
    for (const auto count : std::initializer_list<std::uint8_t>{1, 2, 5}) {
      SCOPED_TRACE(room);
      buffer_.assign(512, '\xEE');
      auto target = serializer(7 + 16 + room, 7);
      EXPECT_EQ(capacityOf(target, kTen), room / 10);
      const auto written = std::min<std::uint64_t>(count, room / 10);
      EXPECT_EQ(write(target, kTen, count), written);
      const std::uint64_t end = written ? 7 + 16 + written * 10 : 7;
      EXPECT_EQ(target.used, end);
      EXPECT_EQ(buffer_.substr(end), std::string(512 - end, '\xEE'));
    }
}

TEST_F(SerializerTest, NoRoom) {
  constexpr std::uint64_t kMost = UINT64_MAX;
  const std::pair<std::uint64_t, std::uint64_t> rows[] = {{16, 0}, {100, 200}, {kMost, kMost - 16}};
  for (const auto& [capacity, used] : rows) {
    SCOPED_TRACE(used);
    auto target = serializer(capacity, used);
    EXPECT_EQ(write(target, kTen, 1), 0);
    EXPECT_EQ(capacityOf(target, kTen), 0u);
    EXPECT_EQ(reserve(target, kTen, 1), -1);
    EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 17), nullptr);
    EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, SIZE_MAX), nullptr);
    EXPECT_EQ(target.used, used);
  }
  auto target = serializer(500);
  EXPECT_EQ(write(target, kHuge, 255), 0);
  EXPECT_EQ(reserve(target, kHuge, 255), -1);
  target.capacity = kMost;
  EXPECT_EQ(capacityOf(target, kHuge), 253u);
}

TEST_F(SerializerTest, TypesWithoutSize) {
  for (const std::uint8_t type : {kEmpty, kMissing}) {
    auto target = serializer(64);
    EXPECT_EQ(write(target, type, 1), 0);
    EXPECT_EQ(capacityOf(target, type), 0u);
    // The buffer call only requires that the type exists. It makes a block without events.
    EXPECT_EQ(reserve(target, type, 9), type == kEmpty ? 16 : -1);
    EXPECT_EQ(target.used, type == kEmpty ? 16u : 0u);
  }
  auto too_short = serializer(15);
  EXPECT_EQ(reserve(too_short, kEmpty, 1), -1);  // too short for the header
}

TEST_F(SerializerTest, EventsBufferIsAllOrNothing) {
  auto target = serializer(16 + 29);
  std::size_t data_size = 7;
  const CapturedLog log;
  EXPECT_EQ(reserve(target, kTen, 3, &data_size), -1);
  EXPECT_EQ(data_size + target.used, 7u);
  write(target, kEmpty, 1);
  EXPECT_EQ(log.lines(),
            (LogLines{{7,
                       "[Data Serializer][tev_data_serializer_get_events_buffer] Cannot get data "
                       "buffer. free_space = 29 < data_size = 30"},
                      {3, "schema second type index 1 size is zero"}}));

  target.capacity = 16 + 30;
  const std::uint64_t before = tev::support::realtimeUsec();
  EXPECT_EQ(reserve(target, kTen, 3, &data_size), 16);
  EXPECT_EQ(data_size, 30u);
  EXPECT_EQ(target.used, 46u);
  EXPECT_EQ(buffer_.substr(12, 4), std::string("\1\0\0\3", 4));
  std::uint64_t timestamp = 0;
  std::memcpy(&timestamp, buffer_.data() + 4, sizeof timestamp);
  EXPECT_TRUE(before <= timestamp && timestamp <= tev::support::realtimeUsec()) << timestamp;

  target.capacity = 50;
  EXPECT_EQ(tev_data_serializer_reserve_buffer(&target, 4), target.buffer + 46);
  EXPECT_EQ(target.used, 50u);
}

TEST_F(SerializerTest, NothingIsWrittenWithoutEventsOrABuffer) {
  auto target = serializer(64);
  EXPECT_EQ(tev_data_serializer_write_events(&target, kSchema, kTen, nullptr, 1), 0);
  EXPECT_EQ(target.used, 0u);
  EXPECT_EQ(tev_data_serializer_write_events(&target, kSchema, kTen, nullptr, 0), 0);
  EXPECT_EQ(target.used, 16u);  // a block without events
  tev_data_serializer_t hollow = {types_.get(), nullptr, 100, 0};
  EXPECT_EQ(write(hollow, kTen, 1), 0);
}

TEST(Magic, MatchesThreeAsTextAndTheFourth) {
  char magic[4], copy[4];
  tev_magic_value_fill_lower(magic, 'E');
  tev_magic_value_copy(copy, magic);
  EXPECT_EQ(std::string(copy, 4), "teve");
  EXPECT_FALSE(tev_magic_value_match_type(copy, 'e'));
  EXPECT_TRUE(tev_magic_value_match("T\0VE", "T\0XE"));
  for (const char* other : {"TEVF", "tEVE"}) EXPECT_FALSE(tev_magic_value_match("TEVE", other));
}

}  // namespace
