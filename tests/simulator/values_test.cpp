#include <algorithm>
#include <chrono>
#include <map>

#include "simulator/random.h"
#include "tests/simulator/sdk.h"

namespace simulator_test {
namespace {

constexpr std::uint32_t kMax32 = UINT32_MAX;

class Values : public SimulatorTest {
 protected:
  // One device with one slot of counters with these laws, read every 250 milliseconds.
  void loadLaws(const std::string& laws) {
    load("{'seed':11,'clock':'samples','sample_step_usec':250000," +
         ("'devices':[{'ibdev_name':'a','slots':[{'counters':[" + laws + "]}]}]}"));
  }
};

TEST_F(Values, FollowTheirLaws) {
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
  const std::vector<std::vector<std::uint32_t>> expected = {
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
TEST_F(Values, RandomWalkIsTheDocumentedOne) {
  using simulator::mix;
  ASSERT_EQ(mix(0), 0xe220a8397b1dcdafU);  // the first number of SplitMix64 from seed 0
  loadLaws(
      "{'text':'x'},{'text':'w','planes':2,"
      "'law':{'type':'random_walk','start':50,'step':20,'min':10,'max':90}}");
  vuna_telemetry_mp* const mp = start();
  const std::uint64_t key = mix(mix(mix(mix(11) ^ 0) ^ 0) ^ 2);  // of the second plane
  std::int64_t position = 50;
  int at_the_edge = 0;
  bool planes_differ = false;
  for (std::uint64_t n = 0; n < 500; ++n) {
    if (n > 0) position += static_cast<std::int64_t>(mix(key + n) % 41) - 20;
    position = std::min<std::int64_t>(std::max<std::int64_t>(position, 10), 90);
    const auto values = read(mp);
    ASSERT_EQ(values[2], position) << n;
    at_the_edge += position == 10 || position == 90;
    planes_differ |= values[1] != values[2];
  }
  EXPECT_GT(at_the_edge, 0);
  EXPECT_TRUE(planes_differ);
}

TEST_F(Values, SeedOfTheEnvironmentGoesFirst) {
  const std::string law = "{'text':'w','law':{'type':'random_walk','start':1000000,'step':1000}}";
  const auto tenth = [&](const char* seed) {
    setenv("VUNA_SIMULATOR_SEED", seed, 1);
    loadLaws(law);
    vuna_telemetry_mp* const mp = start();
    for (int i = 0; i < 9; ++i) read(mp);
    return read(mp);
  };
  EXPECT_EQ(tenth(""), tenth("11"));
  EXPECT_NE(tenth("11"), tenth("12"));
}

TEST_F(Values, ClearingReadStartsCountersAnewAndLeavesGauges) {
  loadLaws(R"(
    {'text':'r','law':{'type':'ramp','start':4294967295,'per_sample':5}},
    {'text':'kept','clear_on_read':false,'law':{'type':'ramp','per_sample':5}},
    {'text':'g','law':{'type':'constant','value':7}},
    {'text':'cleared','clear_on_read':true,'law':{'type':'constant','value':7}})");
  vuna_telemetry_mp* const mp = start();
  using Row = std::vector<std::uint32_t>;
  EXPECT_EQ(read(mp), (Row{kMax32, 0, 7, 7}));
  EXPECT_EQ(read(mp, 0, true), (Row{4, 5, 7, 7}));
  EXPECT_EQ(read(mp, 0, true), (Row{5, 10, 7, 0}));
  EXPECT_EQ(read(mp), (Row{5, 15, 7, 0}));
  EXPECT_EQ(read(mp, 0, true), (Row{10, 20, 7, 0}));

  // A new start is a new beginning.
  sdk->vuna_telemetry_mp_stop(mp);
  sdk->vuna_telemetry_mp_start(mp);
  EXPECT_EQ(read(mp), (Row{kMax32, 0, 7, 7}));
}

// A read claims what the scenario says, and writes what its user has room for.
TEST_F(Values, ReadsNeverWriteBeyondWhatWasTold) {
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
    EXPECT_EQ(number(sdk->vuna_telemetry_mp_get_num_counters, mp, 0), declared);
    std::uint32_t told = 0;
    sdk->vuna_telemetry_mp_cap_get_max_num_counters(sdk->vuna_dev_as_devinfo(dev), &told);

    std::vector<std::uint32_t> values(10, 0);
    std::uint32_t claimed = 0;
    EXPECT_EQ(sdk->vuna_telemetry_mp_get_counters(mp, 0, &claimed, values.data()), kVunaSuccess);
    EXPECT_EQ(claimed, filled);
    std::vector<std::uint32_t> expected(10, 0);
    std::fill_n(expected.begin(), written, 1U);
    EXPECT_EQ(values, expected) << filled << " " << declared << " " << maximum << fault;
  }
}

TEST_F(Values, RealClockRunsAndReadsTakeTheirTime) {
  load(R"({'devices':[{'ibdev_name':'a','slots':[{'read_latency_usec':20000,
    'counters':[{'text':'usec','law':{'type':'ramp','per_second':1000000}}]}]}]})");
  vuna_telemetry_mp* const mp = start();
  const std::uint32_t first = read(mp)[0];
  const auto before = std::chrono::steady_clock::now();
  const std::uint32_t second = read(mp)[0];
  const auto took = std::chrono::steady_clock::now() - before;
  EXPECT_GE(first, 20'000U);
  EXPECT_GE(second - first, 20'000U);
  EXPECT_GE(took, std::chrono::milliseconds(20));
  EXPECT_LE(second - first,
            std::chrono::duration_cast<std::chrono::microseconds>(took).count() + 1000);
}

// A minute of the default scenario's first device, every 50 milliseconds, by counter name. Names of
// plane counters have ".PLANE" behind them.
class DefaultScenario : public SimulatorTest {
 protected:
  static constexpr std::size_t kPerSecond = 20;
  using Series = std::map<std::string, std::vector<std::uint32_t>>;

  Series play(std::uint32_t device, std::uint32_t slot, std::size_t seconds = 60) {
    load("{'base':'default','clock':'samples','sample_step_usec':50000}");
    vuna_telemetry_mp* const mp = start(device);
    std::vector<std::string> names(number(sdk->vuna_telemetry_mp_get_num_counters, mp, slot));
    for (std::size_t i = 0; i < names.size(); ++i) {
      const std::string text = counterText(mp, slot, static_cast<std::uint8_t>(i));
      names[i] = text.substr(0, text.find(','));
      const auto plane = text.find(", plane ");
      if (plane != std::string::npos) names[i] += "." + text.substr(plane + 8);
    }
    Series series;
    for (std::size_t n = 0; n < seconds * kPerSecond; ++n) {
      const auto values = read(mp, slot);
      for (std::size_t i = 0; i < names.size(); ++i) series[names[i]].push_back(values[i]);
    }
    return series;
  }

  // What was counted in each second.
  static std::vector<std::uint64_t> perSecond(const std::vector<std::uint32_t>& counter) {
    std::vector<std::uint64_t> seconds;
    for (std::size_t i = 1; i < counter.size(); ++i) {
      if ((i - 1) % kPerSecond == 0) seconds.push_back(0);
      seconds.back() += std::uint32_t{counter[i] - counter[i - 1]};
    }
    return seconds;
  }
};

TEST_F(DefaultScenario, HasThreeAdaptersOfTwoKindsAndFollowsTheSeed) {
  const Series first = play(0, 1, 1), second = play(1, 2, 1), third = play(2, 3, 1);
  EXPECT_TRUE(std::equal(first.begin(), first.end(), second.begin(), second.end(),
                         [](const auto& a, const auto& b) { return a.first == b.first; }));
  EXPECT_TRUE(first.contains("rtt_us.3") && third.contains("rtt_us.1"));
  EXPECT_FALSE(third.contains("rtt_us.2"));
  EXPECT_NE(first.at("tx_bytes"), second.at("tx_bytes"));

  EXPECT_EQ(first, play(0, 1, 1));
  setenv("VUNA_SIMULATOR_SEED", "2", 1);
  EXPECT_NE(first.at("tx_bytes"), play(0, 1, 1).at("tx_bytes"));
}

TEST_F(DefaultScenario, DeviceTotalsAreTheSumsOfThePlanes) {
  const Series series = play(0, 1);
  for (const auto& [of_device, of_plane] : {std::pair{"tx_bytes", "tx_bytes"},
                                            {"tx_packets", "tx_pkts"},
                                            {"ecn_marked", "ecn_marked"},
                                            {"cnp_received", "cnp_rcvd"},
                                            {"path_switches", "path_switches"}}) {
    const auto& total = series.at(of_device);
    for (std::size_t n = 0; n < total.size(); ++n) {
      std::uint32_t sum = 0;
      for (const char* plane : {".0", ".1", ".2", ".3"})
        sum += series.at(std::string(of_plane) + plane)[n];
      ASSERT_EQ(total[n], sum) << of_device << " " << n;
    }
  }
}

TEST_F(DefaultScenario, BytesWrapButNeverTwiceInASecond) {
  for (const std::uint32_t device : {0U, 1U, 2U}) {
    const Series series = play(device, device + 1);
    for (const char* name : {"tx_bytes", "rx_bytes"}) {
      int wraps = 0;
      const auto& bytes = series.at(name);
      for (std::size_t n = 1; n < bytes.size(); ++n) wraps += bytes[n] < bytes[n - 1];
      EXPECT_GT(wraps, 10) << name;
      for (const std::uint64_t second : perSecond(bytes)) EXPECT_LT(second, kMax32) << name;
    }
  }
}

TEST_F(DefaultScenario, OnePlaneCongestsAndRecovers) {
  const Series series = play(0, 1, 30);
  const auto extremes = [&](const auto& values) {
    const auto [least, most] = std::minmax_element(values.begin(), values.end());
    return std::pair<std::uint64_t, std::uint64_t>(*least, *most);
  };
  int congested = 0;
  for (const std::string plane : {".0", ".1", ".2", ".3"}) {
    const auto& rtt = series.at("rtt_us" + plane);
    const auto [calm_rtt, worst_rtt] = extremes(rtt);
    const auto [least_rate, most_rate] = extremes(series.at("rate_mbps" + plane));
    const auto marks = perSecond(series.at("ecn_marked" + plane));
    const auto most_marks = extremes(marks).second;
    if (worst_rtt > 4 * calm_rtt) {
      ++congested;
      EXPECT_LT(least_rate, most_rate / 2);
      EXPECT_GT(most_marks, 20 * (1 + marks.back()));
      EXPECT_LT(rtt.back(), 2 * calm_rtt);
      // Where the traffic went: at the worst moment the neighbour has more than ever before.
      const auto worst = std::find(rtt.begin(), rtt.end(), worst_rtt) - rtt.begin();
      const auto& neighbour = series.at(plane == ".0" ? "rate_mbps.1" : "rate_mbps.0");
      EXPECT_GT(neighbour[static_cast<std::size_t>(worst)], neighbour[0] * 11 / 10);
    } else {
      EXPECT_LT(worst_rtt, 2 * calm_rtt);
      EXPECT_LT(most_marks, 2000U);
    }
  }
  EXPECT_EQ(congested, 1);
}

}  // namespace
}  // namespace simulator_test
