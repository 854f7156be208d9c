#include <algorithm>

#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

constexpr std::uint32_t kMax32 = UINT32_MAX;

class Laws : public SimulatorTest {
 protected:
  // One device with one slot of counters with these laws, read every 250 milliseconds.
  void loadLaws(const std::string& laws) {
    load("{'seed':11,'clock':'samples','sample_step_usec':250000," +
         ("'devices':[{'ibdev_name':'a','slots':[{'counters':[" + laws + "]}]}]}"));
  }
};

TEST_F(Laws, FollowTheirLaws) {
  loadLaws(R"(
    {'text':'c','law':{'type':'constant','value':4294967295}},
    {'text':'none'},
    {'text':'r','law':{'type':'ramp','start':10,'per_second':10}},
    {'text':'fast','law':{'type':'ramp','per_second':1000000000000}},
    {'text':'wrapping','law':{'type':'ramp','start':4294967290,'per_sample':3}},
    {'text':'falling','law':{'type':'ramp','start':2,'per_sample':4294967295}},
    {'text':'s','law':{'type':'sine','mean':100,'amplitude':50,'period_seconds':2}},
    {'text':'cut','law':{'type':'sine','mean':10,'amplitude':50,'period_seconds':1}},
    {'text':'w','law':{'type':'random_walk','start':50,'step':20,'min':48,'max':55}})");
  vuna_telemetry_mp* const mp = start();
  // 1e12 a second are 250e9 a step: 250e9 mod 2^32 is 891896832.
  const std::vector<Values> expected = {
      {kMax32, 0, 10, 0, 4294967290, 2, 100, 10, 50},
      {kMax32, 0, 12, 891896832, 4294967293, 1, 135, 60, 55},
      {kMax32, 0, 15, 1783793664, 0, 0, 150, 10, 55},
      {kMax32, 0, 17, 2675690496, 3, kMax32, 135, 0, 48},
      {kMax32, 0, 20, 3567587328, 6, kMax32 - 1, 100, 10, 55},
      {kMax32, 0, 22, 164516864, 9, kMax32 - 2, 65, 60, 55},
  };
  for (const auto& row : expected) EXPECT_EQ(read(mp), row);
}

TEST_F(Laws, ClearingReadStartsCountersAnewAndLeavesGauges) {
  loadLaws(R"(
    {'text':'r','law':{'type':'ramp','start':4294967295,'per_sample':5}},
    {'text':'kept','clear_on_read':false,'law':{'type':'ramp','per_sample':5}},
    {'text':'g','law':{'type':'constant','value':7}},
    {'text':'cleared','clear_on_read':true,'law':{'type':'constant','value':7}})");
  vuna_telemetry_mp* const mp = start();
  EXPECT_EQ(read(mp), (Values{kMax32, 0, 7, 7}));
  EXPECT_EQ(read(mp, 0, true), (Values{4, 5, 7, 7}));
  EXPECT_EQ(read(mp, 0, true), (Values{5, 10, 7, 0}));
  EXPECT_EQ(read(mp), (Values{5, 15, 7, 0}));
  EXPECT_EQ(read(mp, 0, true), (Values{10, 20, 7, 0}));
}

// A read reports the count from the scenario, and writes only as much as its user has room for.
TEST_F(Laws, ReadsNeverWriteBeyondWhatWasTold) {
  const struct {
    std::uint32_t filled, declared, maximum;
    const char* fault;
    std::size_t written;
  } rows[] = {{3, 8, 8, "", 3},           {8, 2, 5, "", 5},           {8, 5, 2, "", 5},
              {kMax32, 8, kMax32, "", 8}, {8, 2, 8, "'status':9", 2},  // the maximum was never told
              {8, 2, 8, "'deliver':4", 4}};                            // nor this one
  const std::string max_num = "{'function':'vuna_telemetry_mp_cap_get_max_num_counters','call':1,";
  for (const auto& [filled, declared, maximum, fault, written] : rows) {
    load(
        "{'devices':[{'ibdev_name':'a','max_num_counters':" + std::to_string(maximum) +
        ",'slots':[{'declared_counters':" + std::to_string(declared) +
        ",'filled_counters':" + std::to_string(filled) +
        ",'counters':[{'text':'x','planes':8,'law':{'type':'constant','value':1}}]}]}],'faults':[" +
        (*fault ? max_num + fault + "}" : "") + "]}");
    vuna_telemetry_mp* const mp = start();
    EXPECT_EQ(number(vuna_telemetry_mp_get_num_counters, mp, 0U), declared);
    std::uint32_t told = 0;
    vuna_telemetry_mp_cap_get_max_num_counters(vuna_dev_as_devinfo(dev), &told);

    Values values(10, 0);
    std::uint32_t claimed = 0;
    EXPECT_EQ(vuna_telemetry_mp_get_counters(mp, 0, &claimed, values.data()), kVunaSuccess);
    EXPECT_EQ(claimed, filled);
    Values expected(10, 0);
    std::fill_n(expected.begin(), written, 1U);
    EXPECT_EQ(values, expected) << filled << " " << declared << " " << maximum << fault;
  }
}

class DefaultScenario : public SimulatorTest {};

TEST_F(DefaultScenario, FollowsTheSeedAndAddsUpItsPlanes) {
  // The first device, read every 50 milliseconds for a minute.
  const auto play = [this] {
    load("{'base':'default','clock':'samples','sample_step_usec':50000}");
    vuna_telemetry_mp* const mp = start();
    std::vector<Values> reads;
    while (reads.size() < 1'200) reads.push_back(read(mp, 1));
    return reads;
  };
  const auto reads = play();
  constexpr std::size_t kTotals = 8, kOfPlane = 7;  // counters: the device's, then each plane's
  int wraps = 0;
  for (std::size_t n = 1; n < reads.size(); ++n) {
    wraps += reads[n][0] < reads[n - 1][0];
    std::uint32_t bytes = 0;
    for (std::size_t p = 0; p < 4; ++p) bytes += reads[n].at(kTotals + kOfPlane * p);
    ASSERT_EQ(bytes, reads[n][0]);
  }
  EXPECT_GT(wraps, 10);
  environment.set("VUNA_SIMULATOR_SEED", "");
  EXPECT_EQ(reads, play());
  environment.set("VUNA_SIMULATOR_SEED", "2");
  EXPECT_NE(reads, play());
}

}  // namespace
}  // namespace simulator_test
