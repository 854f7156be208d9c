#include "host/plugin/link_speed.h"

#include <gtest/gtest.h>

#include "tests/support/temp_tree.h"

namespace tev::host {
namespace {

TEST(LinkSpeed, IsThatOfAllPortsOrOfTheInterface) {
  test::TempTree sys;
  sys.write("class/infiniband/ib/ports/1/rate", "400 Gb/sec (4X NDR)\n");
  sys.write("class/infiniband/two/ports/1/rate", "2.5 Gb/sec (1X SDR)\n");
  sys.write("class/infiniband/two/ports/2/rate", "100 Gb/sec (4X EDR)\n");
  sys.write("class/infiniband/odd/ports/1/rate", "fast\n");
  sys.folder("class/infiniband/none/ports/1");
  sys.write("class/net/eth0/speed", "25000\n");
  sys.write("class/net/down/speed", "-1\n");
  const struct {
    const char* rdma;
    const char* interface;
    std::optional<double> gbits;
  } rows[] = {
      {"ib", "eth0", 400},
      {"two", "", 102.5},
      {"odd", "eth0", 25},
      {"none", "down", std::nullopt},
      {"missing", "missing", std::nullopt},
      {"../infiniband/ib", "../net/eth0", std::nullopt},
      {"", "", std::nullopt},
  };
  for (const auto& row : rows)
    EXPECT_EQ(readLinkSpeed(sys.path(""), row.rdma, row.interface), row.gbits) << row.rdma;
}

}  // namespace
}  // namespace tev::host
