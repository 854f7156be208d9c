#include <algorithm>
#include <chrono>

#include "simulator/random.h"
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
    {'text':'top','law':{'type':'sine','mean':4294967295,'amplitude':4294967295,'period_seconds':1}})");
  vuna_telemetry_mp* const mp = start();
  // 1e12 a second are 250e9 a step: 250e9 mod 2^32 is 891896832.
  const std::vector<Values> expected = {
      {kMax32, 0, 10, 0, 4294967290, 2, 100, 10, kMax32},
      {kMax32, 0, 12, 891896832, 4294967293, 1, 135, 60, kMax32},
      {kMax32, 0, 15, 1783793664, 0, 0, 150, 10, kMax32},
      {kMax32, 0, 17, 2675690496, 3, kMax32, 135, 0, 0},
      {kMax32, 0, 20, 3567587328, 6, kMax32 - 1, 100, 10, kMax32},
      {kMax32, 0, 22, 164516864, 9, kMax32 - 2, 65, 60, kMax32},
  };
  for (const auto& row : expected) EXPECT_EQ(read(mp), row);
}

// The walk as docs/simulator.md describes it, worked out here once more.
TEST_F(Laws, RandomWalkIsTheDocumentedOne) {
  using simulator::mix;
  ASSERT_EQ(mix(0), 0xe220a8397b1dcdafU);  // the first number of SplitMix64 from seed 0
  loadLaws(
      "{'text':'x'},{'text':'w','planes':2,"
      "'law':{'type':'random_walk','start':50,'step':20,'min':10,'max':90}}");
  vuna_telemetry_mp* const mp = start();
  const std::uint64_t key = mix(mix(mix(mix(11) ^ 0) ^ 0) ^ 2);  // of the second plane
  std::int64_t position = 50;
  for (std::uint64_t n = 0; n < 500; ++n) {
    if (n > 0) position += static_cast<std::int64_t>(mix(key + n) % 41) - 20;
    position = std::min<std::int64_t>(std::max<std::int64_t>(position, 10), 90);
    ASSERT_EQ(read(mp)[2], position) << n;
  }
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

  // A new start resets the values.
  sdk->vuna_telemetry_mp_stop(mp);
  sdk->vuna_telemetry_mp_start(mp);
  EXPECT_EQ(read(mp), (Values{kMax32, 0, 7, 7}));
}

// A read reports the count from the scenario, and writes only as much as its user has room for.
TEST_F(Laws, ReadsNeverWriteBeyondWhatWasTold) {
  const struct {
    std::uint32_t filled, declared, maximum;
    const char* fault;
    std::size_t written;
  } rows[] = {{8, 8, 8, "", 8},           {3, 8, 8, "", 3}, {8, 2, 5, "", 5},
              {8, 5, 2, "", 5},           {0, 8, 8, "", 0}, {kMax32, 8, kMax32, "", 8},
              {8, 2, 8, "'status':9", 2},    // the maximum was never told
              {8, 2, 8, "'deliver':4", 4}};  // nor this one
  const std::string max_num = "{'function':'vuna_telemetry_mp_cap_get_max_num_counters','call':1,";
  for (const auto& [filled, declared, maximum, fault, written] : rows) {
    load(
        "{'devices':[{'ibdev_name':'a','max_num_counters':" + std::to_string(maximum) +
        ",'slots':[{'declared_counters':" + std::to_string(declared) +
        ",'filled_counters':" + std::to_string(filled) +
        ",'counters':[{'text':'x','planes':8,'law':{'type':'constant','value':1}}]}]}],'faults':[" +
        (*fault ? max_num + fault + "}" : "") + "]}");
    vuna_telemetry_mp* const mp = start();
    EXPECT_EQ(number(sdk->vuna_telemetry_mp_get_num_counters, mp, 0U), declared);
    std::uint32_t told = 0;
    sdk->vuna_telemetry_mp_cap_get_max_num_counters(sdk->vuna_dev_as_devinfo(dev), &told);

    Values values(10, 0);
    std::uint32_t claimed = 0;
    EXPECT_EQ(sdk->vuna_telemetry_mp_get_counters(mp, 0, &claimed, values.data()), kVunaSuccess);
    EXPECT_EQ(claimed, filled);
    Values expected(10, 0);
    std::fill_n(expected.begin(), written, 1U);
    EXPECT_EQ(values, expected) << filled << " " << declared << " " << maximum << fault;
  }
}

TEST_F(Laws, RealClockRunsAndReadsTakeTheirTime) {
  load(R"({'devices':[{'ibdev_name':'a','slots':[{'read_latency_usec':20000,
    'counters':[{'text':'usec','law':{'type':'ramp','per_second':1000000}}]}]}]})");
  const auto begin = std::chrono::steady_clock::now();
  const std::uint32_t usec = read(start())[0];
  const auto took = std::chrono::steady_clock::now() - begin;
  EXPECT_GE(usec, 20'000U);
  EXPECT_LE(std::chrono::microseconds(usec), took);
}

// The default scenario's devices, read every 50 milliseconds for a minute.
class DefaultScenario : public SimulatorTest {
 protected:
  static constexpr std::size_t kPerSecond = 20;

  std::vector<Values> play(std::uint32_t device) {
    load("{'base':'default','clock':'samples','sample_step_usec':50000}");
    vuna_telemetry_mp* const mp = start(device);
    std::vector<Values> reads;
    while (reads.size() < 60 * kPerSecond) reads.push_back(read(mp, device + 1));
    return reads;
  }
};

TEST_F(DefaultScenario, BytesFollowTheSeedAndNeverWrapTwiceInASecond) {
  for (const std::uint32_t device : {0U, 1U, 2U}) {
    const auto reads = play(device);
    int wraps = 0;
    std::uint64_t in_second = 0;
    for (std::size_t n = 1; n < reads.size(); ++n) {
      const std::uint32_t step = reads[n][0] - reads[n - 1][0];
      wraps += reads[n][0] < reads[n - 1][0];
      in_second = n % kPerSecond == 1 ? step : in_second + step;
      ASSERT_LT(in_second, kMax32);
    }
    EXPECT_GT(wraps, 10);
    EXPECT_EQ(reads, play(device));
  }
  const auto third = play(2);
  environment.set("VUNA_SIMULATOR_SEED", "");
  EXPECT_EQ(third, play(2));
  environment.set("VUNA_SIMULATOR_SEED", "2");
  EXPECT_NE(third, play(2));
}

TEST_F(DefaultScenario, DevicesAddUpTheirPlanesOfWhichOneCongestsAndRecovers) {
  const auto reads = play(0);
  constexpr std::size_t kTotals = 8, kOfPlane = 7;  // counters: the device's, then each plane's
  constexpr std::size_t kRoundTrip = 4, kRate = 5;
  const auto of_plane = [&](std::size_t n, std::size_t plane, std::size_t counter) {
    return reads[n][kTotals + kOfPlane * plane + counter];
  };
  ASSERT_EQ(reads[0].size(), kTotals + 4 * kOfPlane);
  for (std::size_t n = 0; n < reads.size(); ++n) {
    Values sums(2, 0);
    for (std::size_t p = 0; p < 4; ++p)
      for (std::size_t c = 0; c < sums.size(); ++c) sums[c] += of_plane(n, p, c);
    ASSERT_EQ(sums, (Values{reads[n][0], reads[n][1]})) << "bytes and packets";
  }
  int congested = 0;
  for (std::size_t p = 0; p < 4; ++p) {
    std::size_t worst = 0;
    for (std::size_t n = 0; n < 30 * kPerSecond; ++n)
      if (of_plane(n, p, kRoundTrip) > of_plane(worst, p, kRoundTrip)) worst = n;
    const std::uint32_t calm = of_plane(30 * kPerSecond, p, kRoundTrip);
    if (of_plane(worst, p, kRoundTrip) < 2 * calm) continue;
    ++congested;
    EXPECT_GT(of_plane(worst, p, kRoundTrip), 4 * calm);
    EXPECT_LT(of_plane(worst, p, kRate), of_plane(0, p, kRate) / 2);
    // Where the traffic went: a neighbour has more than before.
    EXPECT_GT(of_plane(worst, 0, kRate), of_plane(0, 0, kRate) * 11 / 10);
  }
  EXPECT_EQ(congested, 1);
}

}  // namespace
}  // namespace simulator_test
