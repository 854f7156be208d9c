// The origin of the simulator's devices: scenario files, and this machine's interfaces.
#include <sys/stat.h>

#include <cstring>

#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using ::testing::ThrowsMessage;

std::string slot(const std::string& text) {
  return "{'devices':[\n{'ibdev_name':'a','slots':[\n{" + text + "}\n]}\n]}";
}
std::string counter(const std::string& law) {
  return slot("'counters':[\n{'text':'x, y',\n'law':{" + law + "}}]");
}
std::string fault(const std::string& text) {
  return "{'devices':[{'ibdev_name':'a'}],'faults':[\n{" + text + "}]}";
}

class Scenario : public SimulatorTest {};

TEST_F(Scenario, BrokenFilesAreRefusedWithFileLineAndReason) {
  const struct {
    std::string text;
    int line;
    const char* reason;
  } rows[] = {
      {"", 1, "syntax error"},
      {"{'devices':[],\n'\xff':1}", 2, "UTF-8"},
      {"{'seed':1,\n'seed':2}", 2, "key \"seed\" is given twice"},
      {"{'devices':\n" + std::string(100'000, '['), 2, "nested too deeply"},
      {"{'devices':[],'base':'default'}", 1, "either \"devices\" or \"base\""},
      {slot("'algo_id':1,\n'coutners':[]"), 4, "devices[0].slots[0]: unknown key \"coutners\""},
      {slot("'status':18.5"), 3, "status: must be a whole number"},
      {slot("'status':4294967296"), 3, "from 0 to 4294967295"},
      {slot("'algo_enabled':1"), 3, "must be true or false, not a number"},
      {"{'devices':[\n{}]}", 2, "devices[0]: key \"ibdev_name\" is missing"},
      {"{'devices':[{'ibdev_name':[65,\n256]}]}", 2, "ibdev_name[1]: must be"},
      {"{'devices':[{'ibdev_name':'\\u0000'}]}", 1, "must not hold a NUL"},
      {slot("'info':'" + std::string(4097, 'x') + "'"), 3, "longer than 4096"},
      {slot("'counters':[{'text':'a','planes':250},\n{'text':'b','planes':7}]"), 4,
       "at most 256 counters"},
      {counter("'type':'cosine'"), 5, "unknown law \"cosine\""},
      {counter("'type':'ramp','per_second':1,'per_sample':1"), 5, "either"},
      {counter("'type':'sine','mean':1,'amplitude':1,\n'period_seconds':0"), 6,
       "period_seconds: must be a number from"},
      {counter("'type':'random_walk','start':5,'step':1,'max':4"), 5, "from \"min\" to \"max\""},
      {"{'devices':[],'status_names':{\n'x':'y'}}", 2, "not a status number"},
      {fault("'function':'vuna_dev_open',\n'call':0"), 3, "faults[0].call: must be"},
      {fault("'function':'vuna_dev_open','call':1,\n'device':'b'"), 3, "no device has this name"},
      {fault("'function':'vuna_error_get_name','call':1,'device':'a'"), 2, "about no device"},
      {fault("'function':'vuna_dev_open','call':1,'deliver':3"), 2, "no number to deliver"},
  };
  for (const auto& row : rows) {
    const std::string place =
        "scenario " + tree.path("scenario.json") + ":" + std::to_string(row.line) + ": ";
    EXPECT_THAT([&] { load(row.text); }, ThrowsMessage<simulator::ScenarioError>(
                                             AllOf(StartsWith(place), HasSubstr(row.reason))));
  }
}

TEST_F(Scenario, WhatIsNoFileOrSeedIsRefused) {
  ASSERT_EQ(mkfifo(tree.path("pipe").c_str(), 0600), 0);
  tree.write("huge", std::string((16 << 20) + 1, ' '));
  const auto expect_refusal = [&](const std::string& scenario, const std::string& reason) {
    EXPECT_THAT([&] { loadNamed(scenario); },
                ThrowsMessage<simulator::ScenarioError>(StartsWith(reason)));
  };
  for (const auto& [path, reason] : {std::pair{tree.path("pipe"), ": is not a regular file"},
                                     {tree.path("huge"), ": is larger than 16 MiB"}})
    expect_refusal(path, "scenario " + path + reason);
  for (const std::string seed : {"x", "-1", "1 ", "18446744073709551616"}) {
    environment.set("VUNA_SIMULATOR_SEED", seed);
    expect_refusal("default", "VUNA_SIMULATOR_SEED: \"" + seed + "\" is not");
  }
}

TEST_F(Scenario, TheDocumentedExampleIsPlayed) {
  const std::string text = tev::test::readAll(TEST_DATA "/../../docs/simulator.md");
  const std::size_t begin = text.find("```json\n") + 8;
  load(text.substr(begin, text.find("```", begin) - begin));
  EXPECT_EQ(read(start(), 2).size(), 10U);
  EXPECT_EQ(count, 2U);
  EXPECT_STREQ(vuna_error_get_name(42), "LINK_ON_FIRE");
}

TEST_F(Scenario, DevicesAnswerAsWritten) {
  load(R"({'status_names':{'77':'SEVENTY_SEVEN %s'},
    'devices':[{'ibdev_name':[82,255,0,49],'multipath_support':6,
    'max_algo_slots':4294967295,'max_num_counters':257,'slots':[
      {'status':18},{'enable_status':21},{'algo_enabled':false},{'counters_enabled':false,'status':7},
      {'algo_id':9,'major_version':8,'minor_version':4294967295,'info':'four',
       'declared_counters':300,'counters':[{'text':', odd,, line','planes':2},{'text':'z'}]}]}]})");
  vuna_telemetry_mp* const mp = start();
  const vuna_devinfo* const info = list[0];
  EXPECT_STREQ(vuna_error_get_name(77), "SEVENTY_SEVEN %s");
  EXPECT_STREQ(vuna_error_get_name(21), "VUNA_SLOT_INVALID");

  char name[8] = "xxxxxxx";
  EXPECT_EQ(vuna_devinfo_get_ibdev_name(info, name, 5), kVunaSuccess);
  EXPECT_EQ(std::memcmp(name, "R\xff\0001\0xx", 8), 0);
  EXPECT_EQ(vuna_telemetry_mp_cap_is_supported(info), 6U);
  EXPECT_EQ(number(vuna_telemetry_mp_cap_get_max_algo_slots, info), UINT32_MAX);
  EXPECT_EQ(number(vuna_telemetry_mp_cap_get_max_num_counters, info), 257U);
  EXPECT_EQ(number(vuna_telemetry_mp_cap_get_max_algo_info_len, info), 5U);
  EXPECT_EQ(number(vuna_telemetry_mp_cap_get_max_counter_info_len, info),
            std::strlen(", odd,, line, plane 1") + 1);

  std::vector<Values> answers;
  for (const std::uint32_t slot : {0U, 1U, 2U, 3U, 5U, UINT32_MAX, 4U}) {
    std::uint32_t id = 0;
    std::uint8_t algo_on = 0, counters_on = 0;
    const vuna_status id_status = vuna_telemetry_mp_get_algo_id(mp, slot, &id);
    const vuna_status enable_status =
        vuna_telemetry_mp_get_algo_enable_status(mp, slot, &algo_on, &counters_on);
    answers.push_back({id_status, id, enable_status, algo_on, counters_on});
  }
  EXPECT_THAT(answers,
              ElementsAre(Values{18, 0, 18, 0, 0}, Values{0, 1, 21, 0, 0}, Values{0, 1, 0, 0, 1},
                          Values{7, 0, 7, 0, 0}, Values{18, 0, 18, 0, 0}, Values{18, 0, 18, 0, 0},
                          Values{0, 9, 0, 1, 1}));
  EXPECT_EQ(number(vuna_telemetry_mp_get_algo_major_version, mp, 4U), 8U);
  EXPECT_EQ(number(vuna_telemetry_mp_get_algo_minor_version, mp, 4U), UINT32_MAX);
  EXPECT_EQ(number(vuna_telemetry_mp_get_num_counters, mp, 4U), 300U);
  char text[64] = "";
  EXPECT_EQ(vuna_telemetry_mp_get_algo_info(mp, 4, text), kVunaSuccess);
  EXPECT_STREQ(text, "four");
  EXPECT_EQ(counterText(mp, 4, 1), ", odd,, line, plane 1");
  EXPECT_NE(vuna_telemetry_mp_get_counter_info(mp, 4, 3, text), kVunaSuccess);
}

TEST_F(Scenario, InterfacesAreDevicesAndTheirStatisticsCounters) {
  environment.set("VUNA_SIMULATOR_SYSFS", tree.folder("net"));
  const auto statistic = [this](const std::string& path, const std::string& text) {
    tree.write("net/" + path, text);
  };
  statistic("eth0/statistics/rx_bytes", "100\n");
  statistic("eth0/statistics/collisions", "7");
  statistic("eth0/statistics/tx_packets", "4294967301\n");  // 5 over 32 bits
  statistic("aaa/statistics/rx_errors", "1");
  // None of these counts.
  tree.folder("net/no_statistics");
  statistic("text/statistics/rx_bytes", "many");
  statistic("huge/statistics/rx_bytes", "18446744073709551616\n");
  statistic("eth0/statistics/broken", "");
  statistic("eth0/statistics/.hidden", "1");
  tree.folder("net/eth0/statistics/folder");
  tree.link("net/dangling", "nowhere");
  ASSERT_EQ(mkfifo(tree.path("net/eth0/statistics/pipe").c_str(), 0600), 0);

  loadNamed("netdev");
  vuna_telemetry_mp* const mp = start(1);
  EXPECT_EQ(count, 2U);
  char name[64] = "";
  vuna_devinfo_get_ibdev_name(list[1], name, 64);
  EXPECT_STREQ(name, "eth0");
  EXPECT_EQ(counterText(mp, 0, 1), "rx_bytes, received bytes");
  EXPECT_EQ(counterText(mp, 0, 2), "tx_packets, transmitted packets");

  statistic("eth0/statistics/rx_bytes", "250\n");
  EXPECT_EQ(read(mp, 0, true), (Values{7, 250, 5}));
  statistic("eth0/statistics/rx_bytes", "251\n");
  EXPECT_EQ(read(mp, 0, true), (Values{0, 1, 0}));

  statistic("eth0/statistics/rx_bytes", "");  // of an interface that is gone
  std::uint32_t filled = 0, values[3];
  const vuna_status status = vuna_telemetry_mp_get_counters(mp, 0, &filled, values);
  EXPECT_STREQ(vuna_error_get_name(status), "VUNA_DEVICE_GONE");
  EXPECT_EQ(filled, 0U);
}

}  // namespace
}  // namespace simulator_test
