#include "tests/support/plugin.h"

#include <gmock/gmock.h>
#include <sched.h>
#include <sys/mount.h>

#include <cstdio>
#include <cstdlib>
#include <set>
#include <sstream>

namespace tev::test {
namespace {

namespace fs = std::filesystem;
using testing::StartsWith;

class PluginTest : public testing::Test {
 protected:
  PluginTest() { plugin.shareLogger(); }

  static Options simulated(const char* library = SIMULATOR) {
    return options({{"multipath-vuna-lib-path", library},
                    {"multipath-sample-interval-usec", "1000"},
                    {"update", "20"},
                    {"of-some-other-plugin", "%s%n"}});
  }

  TempTree tree;
  Environment environment;
  CapturedLog log;
  Plugin plugin;
};

TEST_F(PluginTest, TheRecordIsAsHostsKnowIt) {
  const HostedProvider provider(plugin, simulated().get());
  ASSERT_TRUE(provider);
  void* slots[19];
  static_assert(sizeof(tev_event_provider_t) == sizeof slots);
  std::memcpy(slots, provider.get(), sizeof slots);
  EXPECT_EQ(slots[0], reinterpret_cast<void*>(1));
  EXPECT_STREQ(static_cast<char*>(slots[1]), "multipath_events");
  EXPECT_STREQ(static_cast<char*>(slots[2]), "Sample HCA multipath telemetry");
  const std::map<int, std::string> entries = {
      {5, "initialize"}, {7, "start"},        {8, "progress"},          {9, "stop"},
      {10, "finalize"},  {11, "get_sources"}, {12, "get_source_config"}};
  EXPECT_EQ(slots[3], nullptr);
  for (int slot = 5; slot < 19; ++slot) {
    const auto entry = entries.find(slot);
    const auto name = entry == entries.end() ? "" : "multipath_event_provider_" + entry->second;
    EXPECT_EQ(slots[slot], name.empty() ? nullptr : plugin.symbol<void>(name.c_str())) << slot;
  }
}

TEST_F(PluginTest, AnswersBeforeInitializeAndAfterARefusal) {
  environment.set("TEV_SOURCE_ID", "node-7");
  environment.set("VUNA_SIMULATOR_SCENARIO", tree.write("none.json", R"({"devices": []})"));
  HostedProvider provider(plugin, simulated().get());
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(provider->start(provider.get()));
    tev_source_array_t* const sources = provider->get_sources(provider.get());
    ASSERT_EQ(sources->count, 1u);
    EXPECT_STREQ(sources->sources[0]->id, "node-7");
    EXPECT_STREQ(sources->sources[0]->tag, "multipath");
    plugin.symbol<decltype(tev_destroy_source_array)>("tev_destroy_source_array")(sources);
    tev_event_provider_config_t config{1, 2, 3};
    EXPECT_TRUE(provider->get_source_config(provider.get(), 65535, &config));
    EXPECT_EQ(config.word64, 7u);
    EXPECT_EQ(config.word32 + config.word16, 0u);
    EXPECT_TRUE(provider.drain().empty());
    EXPECT_TRUE(provider->stop(provider.get()));
    EXPECT_FALSE(provider.initialize());
  }
  provider->finalize(nullptr);
}

TEST_F(PluginTest, ABrokenSdkIsRefusedWithItsReason) {
  // The path of a telemetry library with these bytes, beside a common library, unless that is
  // empty.
  const auto sdk = [&](const std::string& folder, const std::string& library,
                       const std::string& common) {
    if (!common.empty()) tree.write(folder + "/libvuna_common.so", common);
    return tree.write(folder + "/libvuna_telemetry.so", library);
  };
  const auto real = readAll(fs::path(SIMULATOR).replace_filename("libvuna_common.so"));
  const auto alone = sdk("alone", "", "");
  const auto text = sdk("text", "this is not a library\n", real);
  const auto common = sdk("common", "", "nor is this");
  const auto incomplete = sdk("incomplete", readAll(INCOMPLETE_SDK), real);
  struct Row {
    std::string path;
    std::string message;
  };
  const std::string missing = tree.path("missing.so");
  const Row rows[] = {
      {missing, "VUNA lib path does not exist at: " + missing},
      {"",
       "VUNA lib path does not exist at: "
       "/opt/quorvane/vuna/lib/aarch64-linux-gnu/libvuna_telemetry.so"},
      {alone, "VUNA common lib path does not exist at: " + tree.path("alone/libvuna_common.so")},
      {common, "Failed to open VUNA common lib '" + tree.path("common/libvuna_common.so") + "': "},
      {text, "Failed to open VUNA lib '" + text + "': "},
      {incomplete, "Failed to load symbol vuna_telemetry_mp_get_and_clear_counters"},
  };
  for (const auto& row : rows) {
    log.clear();
    // The second key counts only when the first is missing.
    const auto both = simulated(row.path.c_str());
    tev_dict_add(both.get(), "vuna-telemetry-lib-path", SIMULATOR);
    EXPECT_FALSE(HostedProvider(plugin, both.get()));
    EXPECT_THAT(log.texts(TEV_LEVEL_ERROR),
                testing::ElementsAre(
                    StartsWith("[multipath] Failed to construct provider: " + row.message)));
  }
  // With every function bound but one, both libraries are closed again.
  EXPECT_EQ(dlopen(incomplete.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
  EXPECT_TRUE(HostedProvider(plugin, options({{"vuna-telemetry-lib-path", SIMULATOR}}).get()));
}

TEST_F(PluginTest, NumbersThatAreNoneOrTooLargeAreRefused) {
  for (const char* key :
       {"multipath-sample-interval-usec", "multipath-max-buffer-size", "update"}) {
    SCOPED_TRACE(key);
    log.clear();
    const auto broken = options({{"multipath-vuna-lib-path", SIMULATOR}, {key, "soon"}});
    EXPECT_FALSE(HostedProvider(plugin, broken.get()));
    EXPECT_TRUE(log.contains(3, "[multipath] Failed to construct provider: stoull"));
    EXPECT_EQ(dlopen(SIMULATOR, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }
  const auto huge = options({{"multipath-vuna-lib-path", SIMULATOR},
                             {"multipath-sample-interval-usec", "1"},
                             {"update", "18446744073709551615"}});
  HostedProvider provider(plugin, huge.get());
  ASSERT_TRUE(provider);
  EXPECT_FALSE(provider.initialize());
  EXPECT_THAT(log.texts(TEV_LEVEL_ERROR).back(),
              StartsWith("[multipath] [multipath_event_provider_initialize] failed: "));
}

// The test program exports its own tev_* functions, which the dynamic loader finds first.
TEST(PluginSymbols, ThePluginUsesItsOwnCommonLibrary) {
  ASSERT_EQ(dlsym(RTLD_DEFAULT, "tev_log_level"), &tev_log_level);
  const Plugin plugin;
  auto* const level = plugin.symbol<std::uint32_t>("tev_log_level");
  ASSERT_NE(level, &tev_log_level);
  plugin.symbol<decltype(tev_set_log_level)>("tev_set_log_level")(5);
  EXPECT_EQ(*level, 5u);
  // Its messages also use its own threshold and function.
  *level = 0;
  const CapturedLog hosts_own;
  EXPECT_EQ(plugin.construct(nullptr), nullptr);
  EXPECT_TRUE(hosts_own.lines().empty());
}

std::vector<std::string> output(const std::string& command) {
  std::string text;
  std::FILE* const pipe = popen(command.c_str(), "r");
  char chunk[4096];
  while (const auto got = std::fread(chunk, 1, sizeof chunk, pipe)) text.append(chunk, got);
  EXPECT_EQ(pclose(pipe), 0) << command;
  std::vector<std::string> lines;
  std::istringstream rest(text);
  for (std::string line; std::getline(rest, line);) lines.push_back(line);
  return lines;
}

TEST(PluginSymbols, AreThoseOfTheListAndNoOthers) {
  EXPECT_EQ(output("nm -D --defined-only " PLUGIN
                   " | awk '{print $3}' | grep -vE '^__(odr_)?asan' | LC_ALL=C sort"),
            output("LC_ALL=C sort " EXPECTED_SYMBOLS));
}

TEST(PluginSymbols, TheLibraryNeedsCommonLibrariesOnly) {
  const auto needed =
      output("readelf -Wd " PLUGIN " | sed -n 's/.*(NEEDED).*\\[\\(.*\\)\\]/\\1/p'");
  EXPECT_THAT(needed, testing::Each(testing::ContainsRegex(
                          "^(libboost_filesystem|libcrypto|libstdc\\+\\+|libgcc_s|libm|libc|"
                          "ld-linux|lib[atu]b?san)")));
}

// Replaces an entry of the file system for this process only. False when the kernel does not allow
// it.
bool cover(const std::string& target, const std::string& source) {
  return mount(source.c_str(), target.c_str(), nullptr, MS_BIND | MS_REC, nullptr) == 0;
}

TEST(PluginOnAMachine, NamesDevicesByTheirInterfaces) {
  TempTree tree;
  tree.write("class/infiniband/rdma0/device/uevent", "PCI_SLOT_NAME=0000:3b:00.0\n");
  tree.folder("class/infiniband/rdma0/device/net/eth2");
  // A link replaces the character device.
  tree.link("dev/zrd/qz0", tree.write("nodes/qz0", "domain:bus:dev.fn=0000:3b:00.0\n"));
  bool covered =
      unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
  for (const std::string needed : {"null", "zero", "urandom"})
    covered = covered && cover(tree.write("dev/" + needed, ""), "/dev/" + needed);
  if (!covered || !cover("/sys/class", tree.path("class")) || !cover("/dev", tree.path("dev")))
    GTEST_SKIP() << "no private mount namespace here: " << std::strerror(errno);
  const CapturedLog log;
  const Plugin plugin;
  plugin.shareLogger();
  const auto fast = options({{"multipath-vuna-lib-path", SIMULATOR},
                             {"multipath-sample-interval-usec", "1000"},
                             {"multipath-devices", "rdma2, eth2"}});
  HostedProvider provider(plugin, fast.get());
  ASSERT_TRUE(provider.initialize());
  std::set<std::string> devices;
  for (const auto& event : provider.await(40)) devices.insert(event.device);
  EXPECT_EQ(devices, (std::set<std::string>{"eth2", "rdma2"}));
  EXPECT_TRUE(
      log.contains(7,
                   "[device_utils]   HCA=rdma0, PCI address=0000:3b:00.0, ZRD device=qz0, network "
                   "interface=eth2"));
}

}  // namespace
}  // namespace tev::test
