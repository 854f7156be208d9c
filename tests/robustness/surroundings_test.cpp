// Options, environments and /sys trees of every odd kind. Either the provider refuses with an error
// in the log, or it samples as ever.

#include <sys/stat.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "tests/robustness/rig.h"
#include "tests/support/captured_log.h"
#include "tests/support/environment.h"
#include "tev/sources.h"

namespace tev::test {
namespace {

using namespace std::string_literals;

void expectAllSampled(Rig& rig) {
  const CapturedLog log(TEV_LEVEL_INFO);
  EXPECT_EQ(rig.live().delivered_of.size(), 2u);
}

TEST(Surroundings, AnyOptionIsRefusedOrServes) {
  constexpr char kInterval[] = "multipath-sample-interval-usec";
  int tried = 0;
  int refused = 0;
  for (const std::string option :
       {kInterval, "update", "multipath-max-buffer-size", "multipath-clear-sampled-counters",
        "multipath-devices", "multipath-sdk-log-level"})
    for (const char* const value :
         {"", " ", "0", "1", "-1", "2147483648", "9223372036854775808", "18446744073709551615",
          "18446744073709551616", "1e9", "0x10", "true", ",", "%s%n%999999d", "\xff\xfe\x01"}) {
      // At interval 0 nothing waits for the clock, and the rig's moves on by being waited for.
      if (option == kInterval && std::isdigit(*value) && std::strtoull(value, nullptr, 10) == 0)
        continue;
      SCOPED_TRACE(option + "=" + value);
      const CapturedLog log(TEV_LEVEL_INFO);
      Rig rig{{option.c_str(), value}};
      const Life life = rig.live();
      EXPECT_TRUE(rig.sdk.balanced());
      ++tried;
      if (life.initialized) continue;
      ++refused;
      // What the constructor throws is the entry point's to log.
      EXPECT_TRUE(!life.constructed || !log.lines().empty());
    }
  EXPECT_GT(refused, 10);
  std::printf("options tried: %d\nof these refused: %d\n", tried, refused);
}

TEST(Surroundings, NoEnvironmentKeepsDevicesFromBeingSampled) {
  const std::string huge(1 << 20, 'x');
  int tried = 0;
  for (const char* const variable :
       {"TEV_SOURCE_ID", "TEV_HOST_NAME", "TEV_PCI_ADDRESS_STRIP_DOMAIN", "SOURCE_ID", "HOST_NAME",
        "PCI_ADDRESS_STRIP_DOMAIN", "TEV_LOG_THREAD_SAFE", "TEV_API_LOG_LEVEL"})
    for (const std::string& value : {""s, "1"s, "-1"s, "%s%n%999999d"s, "\xff\x01\n"s, huge}) {
      SCOPED_TRACE(variable + ("=" + value.substr(0, 20)));
      Environment environment;
      environment.set(variable, value);
      Rig rig;
      expectAllSampled(rig);
      tev_source_array_t* const sources = tev_create_default_source_array(value.c_str());
      ASSERT_NE(sources, nullptr);
      const tev_source_t& source = *sources->sources[0];
      EXPECT_TRUE(std::memchr(source.id, '\0', sizeof source.id));
      EXPECT_TRUE(std::memchr(source.tag, '\0', sizeof source.tag));
      tev_destroy_source_array(sources);
      ++tried;
    }
  std::printf("environments tried: %d\n", tried);
}

// What may stand in the place of an entry.
struct Form {
  const char* name;
  void (*spoil)(TempTree& tree, const std::string& entry);
};
const Form kForms[] = {
    {"missing", [](auto&, auto&) {}},
    {"empty file", [](auto& tree, auto& entry) { tree.write(entry, ""); }},
    {"no text",
     [](auto& tree, auto& entry) { tree.write(entry, "\0\xff\n\0PCI_SLOT_NAME=\xff\0\n"s); }},
    {"one huge line",
     [](auto& tree, auto& entry) {
       tree.write(entry, "PCI_SLOT_NAME=" + std::string(1 << 20, '%'));
     }},
    {"empty folder", [](auto& tree, auto& entry) { tree.folder(entry); }},
    {"dangling link", [](auto& tree, auto& entry) { tree.link(entry, "nowhere"); }},
    {"link to itself", [](auto& tree, auto& entry) { tree.link(entry, tree.path(entry)); }},
    {"link to its folder", [](auto& tree, auto& entry) { tree.link(entry, "."); }},
    {"pipe",
     [](auto& tree, auto& entry) {
       std::filesystem::remove(tree.write(entry, ""));
       ASSERT_EQ(mkfifo(tree.path(entry).c_str(), 0600), 0);
     }},
    {"without permissions",
     [](auto& tree, auto& entry) {
       std::filesystem::permissions(tree.folder(entry), std::filesystem::perms::none);
     }},
};

TEST(Surroundings, NoSysTreeKeepsDevicesFromBeingSampled) {
  int tried = 0;
  for (const std::string entry :
       {"sys", "sys/class", "sys/class/infiniband", "sys/class/infiniband/rdma0",
        "sys/class/infiniband/rdma0/device", "sys/class/infiniband/rdma0/device/uevent",
        "sys/class/infiniband/rdma0/device/net", "sys/class/infiniband/another", "dev", "dev/zrd",
        "dev/zrd/zrd0"})
    for (const Form& form : kForms) {
      SCOPED_TRACE(entry + ": " + form.name);
      Rig rig;
      std::filesystem::remove_all(rig.tree.path(entry));
      form.spoil(rig.tree, entry);
      expectAllSampled(rig);
      ++tried;
    }
  std::printf("trees tried: %d\n", tried);
}

}  // namespace
}  // namespace tev::test
