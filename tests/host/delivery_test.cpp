#include "host/delivery.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::block;
using test::SampleTypes;

class CountingFormatter : public Formatter {
 public:
  void event(const Event&, const Series&) override { ++count; }
  int count = 0;
};

// Two devices, told apart by a key of one byte.
class DeliveryTest : public testing::Test {
 protected:
  DeliveryTest() { types_.add("t", {{"port", nullptr, "uint8_t", 0, 1}}, {"port"}); }

  void send(Delivery& delivery, std::uint8_t port, int count) {
    for (int i = 0; i < count; ++i) delivery.consume(block(++now_, 0, 0, 1, {port}));
  }

  SampleTypes types_;
  DeviceFilter devices_;
  CountingFormatter formatter_;
  std::uint64_t now_ = 0;
};

TEST_F(DeliveryTest, IsCompleteWhenEverySeriesIs) {
  const SchemaView schema(*types_);
  Delivery delivery(schema, devices_, formatter_, 3);
  EXPECT_FALSE(delivery.isComplete()) << "nothing has come";
  send(delivery, 1, 5);
  send(delivery, 2, 2);
  EXPECT_FALSE(delivery.isComplete());
  EXPECT_EQ(formatter_.count, 5);
  send(delivery, 2, 1);
  EXPECT_TRUE(delivery.isComplete());
  EXPECT_EQ(formatter_.count, 6);
  EXPECT_EQ(delivery.totals()[0].events, 6u);
  EXPECT_EQ(delivery.totals()[0].bytes, 6u);
}

TEST_F(DeliveryTest, DoesNotWaitForADeviceThatHasGone) {
  const SchemaView schema(*types_);
  Delivery delivery(schema, devices_, formatter_, 3);
  send(delivery, 1, 1);
  send(delivery, 2, 3 + 3 + 10);
  EXPECT_FALSE(delivery.isComplete());
  send(delivery, 2, 1);
  EXPECT_TRUE(delivery.isComplete());
}

TEST_F(DeliveryTest, NeverEndsWithoutALimit) {
  const SchemaView schema(*types_);
  Delivery delivery(schema, devices_, formatter_, std::nullopt);
  send(delivery, 1, 100);
  EXPECT_FALSE(delivery.isComplete());
  EXPECT_EQ(formatter_.count, 100);
}

}  // namespace
}  // namespace tev::host
