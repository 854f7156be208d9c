#include "tests/support/plugin.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>

#include "tests/end_to_end/private_machine.h"
#include "tests/support/captured_log.h"
#include "tests/support/options.h"
#include "tests/support/temp_tree.h"

namespace tev::test {
namespace {

class PluginTest : public testing::Test {
 protected:
  PluginTest() {
    setenv("VUNA_SIMULATOR_SCENARIO", tree.write("scenario.json", kCountedReads).c_str(), 1);
    plugin.shareLogger();
  }

  static Options simulated(const char* library = SIMULATOR) {
    return options({{"multipath-vuna-lib-path", library},
                    {"multipath-sample-interval-usec", "1000"},
                    {"update", "20"},
                    {"of-some-other-plugin", "%s%n"}});
  }

  TempTree tree;
  CapturedLog log;
  Plugin plugin;
};

TEST_F(PluginTest, TheRecordIsAsHostsKnowIt) {
  static_assert(sizeof(tev_event_provider_t) == 19 * sizeof(void*));
  const HostedProvider provider(plugin, simulated().get());
  ASSERT_TRUE(provider);
  void* slots[19];
  std::memcpy(slots, provider.get(), sizeof slots);
  EXPECT_EQ(slots[0], reinterpret_cast<void*>(1));
  EXPECT_STREQ(static_cast<char*>(slots[1]), "multipath_events");
  EXPECT_STREQ(static_cast<char*>(slots[2]), "Sample HCA multipath telemetry");
  const char* const entries[19] = {nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   nullptr,
                                   "multipath_event_provider_initialize",
                                   nullptr,
                                   "multipath_event_provider_start",
                                   "multipath_event_provider_progress",
                                   "multipath_event_provider_stop",
                                   "multipath_event_provider_finalize",
                                   "multipath_event_provider_get_sources",
                                   "multipath_event_provider_get_source_config"};
  EXPECT_NE(slots[4], nullptr);
  for (int slot : {3, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18})
    EXPECT_EQ(slots[slot], entries[slot] ? plugin.symbol<void>(entries[slot]) : nullptr) << slot;
}

TEST_F(PluginTest, AnswersBeforeInitializeAndAfterARefusal) {
  setenv("TEV_SOURCE_ID", "node-7", 1);
  setenv("VUNA_SIMULATOR_SCENARIO", tree.write("none.json", R"({"devices": []})").c_str(), 1);
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

TEST_F(PluginTest, DeliversEverySampleOfARun) {
  HostedProvider provider(plugin, simulated().get());
  ASSERT_TRUE(provider.initialize());
  auto events = provider.await(300);
  provider->stop(provider.get());
  for (auto& event : provider.drain()) events.push_back(std::move(event));
  EXPECT_TRUE(provider.drain().empty());

  std::uint32_t reads = 0;
  std::uint64_t last_timestamp = 0;
  std::size_t planes = 0;
  for (const auto& event : events) {
    EXPECT_EQ(event.device, "rdma0");
    if (event.type == "multipath_event_plane") {
      ++planes;
      continue;
    }
    std::uint32_t value = 0;
    std::memcpy(&value, event.bytes.data() + 5, 4);
    if (reads != 0) {
      ASSERT_EQ(value, reads + 1);  // none lost, none twice
      ASSERT_GE(event.timestamp, last_timestamp);
    }
    reads = value;
    last_timestamp = event.timestamp;
  }
  EXPECT_EQ(planes, (events.size() - planes) * 2);

  const char* name = nullptr;
  tev_multipath_sample_counts_t counts{};
  const auto get = plugin.symbol<decltype(multipath_event_provider_get_sample_counts)>(
      "multipath_event_provider_get_sample_counts");
  ASSERT_TRUE(get(provider.get(), 0, &name, &counts));
  EXPECT_STREQ(name, "rdma0");
  EXPECT_EQ(counts.taken, counts.lost + (events.size() - planes));
  EXPECT_FALSE(get(provider.get(), 1, &name, &counts));
}

TEST_F(PluginTest, ABrokenSdkIsRefusedWithItsReason) {
  const std::string common =
      std::string(SIMULATOR).substr(0, std::string(SIMULATOR).rfind('/')) + "/libvuna_common.so";
  const auto beside = [&](const std::string& folder) {
    tree.folder(folder);
    std::filesystem::copy_file(common, tree.path(folder + "/libvuna_common.so"));
    return tree.path(folder + "/libvuna_telemetry.so");
  };
  const auto alone = tree.write("alone/libvuna_telemetry.so", "");
  const auto text = beside("text");
  tree.write("text/libvuna_telemetry.so", "this is no library\n");
  const auto folder = beside("folder");
  tree.folder("folder/libvuna_telemetry.so");
  const auto incomplete = beside("incomplete");
  std::filesystem::copy_file(INCOMPLETE_SDK, incomplete);
  tree.write("common/libvuna_telemetry.so", "");
  tree.write("common/libvuna_common.so", "nor is this");

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
      {tree.path("common/libvuna_telemetry.so"),
       "Failed to open VUNA common lib '" + tree.path("common/libvuna_common.so") + "': "},
      {text, "Failed to open VUNA lib '" + text + "': "},
      {folder, "Failed to open VUNA lib '" + folder + "': "},
      {incomplete, "Failed to load symbol vuna_telemetry_mp_get_and_clear_counters"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    log.clear();
    EXPECT_FALSE(HostedProvider(plugin, simulated(row.path.c_str()).get()));
    const auto errors = log.texts(TEV_LEVEL_ERROR);
    ASSERT_EQ(errors.size(), 1u);
    EXPECT_TRUE(errors[0].starts_with("[multipath] Failed to construct provider: " + row.message))
        << errors[0];
  }
  // With every function bound but one, both libraries are closed again.
  EXPECT_EQ(dlopen(incomplete.c_str(), RTLD_NOW | RTLD_NOLOAD), nullptr);
}

TEST_F(PluginTest, TheSecondKeyCountsOnlyWhenTheFirstIsMissing) {
  const auto second = options({{"vuna-telemetry-lib-path", SIMULATOR}});
  EXPECT_TRUE(HostedProvider(plugin, second.get()));
  const auto both =
      options({{"multipath-vuna-lib-path", ""}, {"vuna-telemetry-lib-path", SIMULATOR}});
  EXPECT_FALSE(HostedProvider(plugin, both.get()));
}

TEST_F(PluginTest, ANumberThatIsNoneIsRefusedAndTheSdkUnloaded) {
  for (const char* key :
       {"multipath-sample-interval-usec", "multipath-max-buffer-size", "update"}) {
    log.clear();
    const auto broken = options({{"multipath-vuna-lib-path", SIMULATOR}, {key, "soon"}});
    EXPECT_FALSE(HostedProvider(plugin, broken.get()));
    EXPECT_TRUE(log.contains(3, "[multipath] Failed to construct provider: stoull"));
    EXPECT_EQ(dlopen(SIMULATOR, RTLD_NOW | RTLD_NOLOAD), nullptr);
  }
}

TEST_F(PluginTest, SizesThatMemoryCannotHoldRefuseInitialize) {
  for (const char* key : {"multipath-max-buffer-size", "update"}) {
    SCOPED_TRACE(key);
    log.clear();
    const auto huge = options({{"multipath-vuna-lib-path", SIMULATOR},
                               {"multipath-sample-interval-usec", "1"},
                               {key, "18446744073709551615"}});
    HostedProvider provider(plugin, huge.get());
    ASSERT_TRUE(provider);
    EXPECT_FALSE(provider.initialize());
    EXPECT_TRUE(log.texts(TEV_LEVEL_ERROR)
                    .back()
                    .starts_with("[multipath] [multipath_event_provider_initialize] failed: "));
  }
}

TEST_F(PluginTest, TwoProvidersSampleSideBySide) {
  HostedProvider first(plugin, simulated().get());
  HostedProvider second(plugin, simulated().get());
  ASSERT_TRUE(first.initialize());
  ASSERT_TRUE(second.initialize());
  EXPECT_GE(first.await(30).size(), 30u);
  EXPECT_GE(second.await(30).size(), 30u);
}

// The test program shows its own tev_* to the dynamic loader, which comes first in look-ups.
TEST(PluginSymbols, ThePluginUsesItsOwnCommonLibrary) {
  ASSERT_EQ(dlsym(RTLD_DEFAULT, "tev_log_level"), &tev_log_level);
  const Plugin plugin;
  auto* const level = plugin.symbol<std::uint32_t>("tev_log_level");
  ASSERT_NE(level, &tev_log_level);
  tev_log_level = TEV_LEVEL_DEBUG;
  *level = 0;
  plugin.symbol<decltype(tev_set_log_level)>("tev_set_log_level")(5);
  EXPECT_EQ(*level, 5u);
  EXPECT_EQ(tev_log_level, static_cast<std::uint32_t>(TEV_LEVEL_DEBUG));
  // What it says goes by its own threshold and function too.
  *level = 0;
  const CapturedLog hosts_own;
  EXPECT_EQ(plugin.construct(nullptr), nullptr);
  EXPECT_TRUE(hosts_own.lines().empty());
}

std::string output(const std::string& command) {
  std::string text;
  std::FILE* const pipe = popen(command.c_str(), "r");
  char chunk[4096];
  while (const auto got = std::fread(chunk, 1, sizeof chunk, pipe)) text.append(chunk, got);
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

TEST(PluginSymbols, AreThoseOfTheListAndNoOthers) {
  std::set<std::string> exported;
  std::istringstream symbols(output("nm -D --defined-only " PLUGIN));
  for (std::string address, kind, name; symbols >> address >> kind >> name;)
    if (!name.starts_with("__asan") && !name.starts_with("__odr_asan")) exported.insert(name);
  std::set<std::string> expected;
  std::ifstream list(EXPECTED_SYMBOLS);
  for (std::string name; std::getline(list, name);) expected.insert(name);
  std::vector<std::string> differing;
  std::set_symmetric_difference(exported.begin(), exported.end(), expected.begin(), expected.end(),
                                std::back_inserter(differing));
  EXPECT_EQ(differing, std::vector<std::string>());
}

TEST(PluginSymbols, TheLibraryIsHardened) {
  const auto dynamic = output("readelf -Wdl " PLUGIN);
  EXPECT_NE(dynamic.find("SYMBOLIC"), std::string::npos);
  EXPECT_NE(dynamic.find("NOW"), std::string::npos);
  EXPECT_NE(dynamic.find("GNU_RELRO"), std::string::npos);
  EXPECT_EQ(dynamic.find("TEXTREL"), std::string::npos);
  std::istringstream lines(dynamic);
  for (std::string line; std::getline(lines, line);) {
    if (line.find("(NEEDED)") == std::string::npos) continue;
    const auto name = line.substr(line.find('[') + 1);
    const auto allowed = {"libboost_filesystem",
                          "libcrypto",
                          "libstdc++",
                          "libgcc_s",
                          "libm.",
                          "libc.",
                          "ld-linux",
                          "libasan",
                          "libubsan",
                          "libtsan"};
    EXPECT_TRUE(std::any_of(allowed.begin(), allowed.end(), [&](const char* prefix) {
      return name.starts_with(prefix);
    })) << line;
  }
}

// Interfaces, PCI addresses and device nodes as the real paths have them.
TEST(PluginOnAMachine, NamesDevicesByTheirInterfaces) {
  if (!enterPrivateMachine({{"rdma0", "0000:3b:00.0", {"enp59s0f0np0", "eth2"}, "qz0"},
                            {"rdma1", "0001:3b:00.1", {"eth10"}, ""},
                            {"rdma2", "0000:5e:00.0", {}, "qz1"}}))
    GTEST_SKIP() << "no private mount namespace here";

  setenv("TEV_PCI_ADDRESS_STRIP_DOMAIN", "yes", 1);
  unsetenv("VUNA_SIMULATOR_SCENARIO");
  const CapturedLog log;
  const Plugin plugin;
  plugin.shareLogger();
  const auto fast = options({{"multipath-vuna-lib-path", SIMULATOR},
                             {"multipath-sample-interval-usec", "1000"},
                             {"multipath-devices", "rdma2, eth2, rdma1"}});
  HostedProvider provider(plugin, fast.get());
  ASSERT_TRUE(provider);
  ASSERT_TRUE(provider.initialize());
  std::set<std::string> devices;
  for (const auto& event : provider.await(40)) devices.insert(event.device);
  EXPECT_EQ(devices, (std::set<std::string>{"eth2", "rdma2"}));

  EXPECT_TRUE(log.contains(
      7, "[multipath] Skipping device eth10 as it is not in the configured device list"));
  EXPECT_TRUE(log.contains(7, "[device_utils] Found rdma0 ZRD device - qz0"));
  const auto identified = log.texts(7);
  EXPECT_TRUE(std::any_of(identified.begin(), identified.end(), [](const auto& text) {
    return text.starts_with(
        "[device_utils]   HCA=rdma0, PCI address=3b:00.0, ZRD device=qz0, network interface=");
  }));
  EXPECT_TRUE(log.contains(7,
                           "[device_utils]   HCA=rdma1, PCI address=3b:00.1, ZRD device=, network "
                           "interface=eth10"));
}

}  // namespace
}  // namespace tev::test
