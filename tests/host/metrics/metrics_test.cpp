#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/events/decoder.h"
#include "host/metrics/exporter.h"
#include "host/metrics/field_metrics.h"
#include "host/metrics/field_names.h"
#include "host/metrics/listen_address.h"
#include "host/metrics/metric_names.h"
#include "host/metrics/metrics_page.h"
#include "host/support/errors.h"
#include "tests/host/metrics/values.h"
#include "tests/host/sample_types.h"

namespace tev::host {
namespace {

using test::Values;
using test::valuesOf;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::Pair;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kSecond = 1'000'000;
constexpr std::uint64_t kStart = 1'700'000'000 * kSecond;

template <class Error>
std::string errorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const Error& error) {
    return error.what();
  }
  return "";
}

TEST(MetricNames, HaveOnlyTheCharactersThatArePossible) {
  const struct {
    const char* field;
    const char* word;
    const char* label;
  } cases[] = {{"rx_bytes", "rx_bytes", "rx_bytes"},
               {"port[2].rx", "port_2__rx", "port_2__rx"},
               {"9lives", "9lives", "_9lives"},
               {"a\nb\"c", "a_b_c", "a_b_c"},
               {"größe", "gr__e", "gr__e"},
               {"\xff:x", "__x", "_x"},
               {"", "", "_"},
               {"__name__", "__name__", "_name__"}};
  for (const auto& one : cases) {
    EXPECT_EQ(nameWord(one.field), one.word);
    EXPECT_EQ(labelName(one.field), one.label);
  }
  EXPECT_EQ(totalName("a_total"), "a_total");
}

TEST(ListenAddress, IsLoopbackUnlessToldOtherwise) {
  const std::pair<const char*, const char*> cases[] = {{"9464", "127.0.0.1:9464"},
                                                       {":9464", "127.0.0.1:9464"},
                                                       {"localhost:0", "127.0.0.1:0"},
                                                       {"0.0.0.0:80", "0.0.0.0:80"},
                                                       {"[::1]:80", "[::1]:80"},
                                                       {"65536", ""},
                                                       {"", ""},
                                                       {":", ""},
                                                       {"-1", ""},
                                                       {"+1", ""},
                                                       {"80s", ""},
                                                       {"::1:80", ""},
                                                       {"[::1]", ""},
                                                       {"[127.0.0.1]:80", ""},
                                                       {"1.2.3:80", ""},
                                                       {"host:80", ""},
                                                       {"1.2.3.4:80,81", ""}};
  for (const auto& [given, expected] : cases) {
    const auto address = listenAddressFrom(given);
    EXPECT_EQ(address ? address->text() : "", expected) << given;
  }
}

// The metrics of two types of planes and of one type of devices.
class FieldMetricsTest : public testing::Test {
 protected:
  FieldMetricsTest() {
    types_.add("device_0",
               {{"name", nullptr, "char", 0, 4}, {"rx", "octets\n\\", "uint32_t", 0, 1}}, {"name"});
    for (const char* const name : {"plane_0", "plane_1"})
      types_.add(name,
                 {{"name", nullptr, "char", 0, 4},
                  {"plane", nullptr, "uint8_t", 0, 1},
                  {"rx", nullptr, "uint32_t", 0, 1},
                  {"rtt", nullptr, "uint32_t", 0, 1},
                  {"heat", nullptr, "double", 0, 1}},
                 {"name", "plane"});
  }

  void plane(std::uint64_t second, std::uint32_t rx, std::uint32_t rtt, std::uint16_t type = 1) {
    const auto blocks = test::Bytes()
                            .block(kStart + second * kSecond, 0, type, 1)
                            .text("d", 4)
                            .u8({3})
                            .add(rx)
                            .add(rtt)
                            .add(-0.5);
    decodeBlocks(schema(), blocks, [this](const Event& event) {
      const Series& series = series_.of(event);
      figures().sample(event, series);
      metrics().sample(event, series);
    });
  }

  Values at(std::uint64_t second) {
    return valuesOf(metrics().families(kStart + second * kSecond, {"d"}));
  }

  const SchemaView& schema() {
    if (!schema_) schema_.emplace(SchemaView::fromTypeSystem(*types_));
    return *schema_;
  }
  Figures& figures() {
    if (!figures_) {
      projection_.emplace(schema());
      CountingOptions counting;
      counting.counters = {"rx"};
      counting.gauges = {"rtt"};
      figures_.emplace(*projection_, counting, kSecond);
    }
    return *figures_;
  }
  FieldMetrics& metrics() {
    if (!metrics_) metrics_.emplace(figures(), std::chrono::seconds(3), names_);
    return *metrics_;
  }

  test::SampleTypes types_;
  MetricNames names_;
  SeriesTable series_;

 private:
  std::optional<SchemaView> schema_;
  std::optional<Projection> projection_;
  std::optional<Figures> figures_;
  std::optional<FieldMetrics> metrics_;
};

TEST_F(FieldMetricsTest, FieldsBecomeCountersAndGaugesWithTheKeyAsLabels) {
  plane(0, 10, 7);
  plane(1, 110, 5);
  plane(2, 120, 6);
  EXPECT_THAT(at(2),
              UnorderedElementsAre(Pair("tev_plane_rx_total device=d plane=3", 110),
                                   Pair("tev_plane_rx_unknown_steps_total device=d plane=3", 0),
                                   Pair("tev_plane_rx_peak_per_second device=d plane=3", 100),
                                   Pair("tev_plane_rtt device=d plane=3", 6),
                                   Pair("tev_plane_rtt_recent_min device=d plane=3", 5),
                                   Pair("tev_plane_rtt_recent_max device=d plane=3", 7),
                                   Pair("tev_plane_heat device=d plane=3", -0.5),
                                   Pair("tev_plane_heat_recent_min device=d plane=3", -0.5),
                                   Pair("tev_plane_heat_recent_max device=d plane=3", -0.5)));
  EXPECT_THAT(metrics().families(kStart, {"another"})[0].help, HasSubstr("octets\\x0a\\"));
  EXPECT_THAT(valuesOf(metrics().families(kStart, {"another"})), IsEmpty());
}

TEST_F(FieldMetricsTest, AHelpTextNamesTheCounterBehindAnAlias) {
  const TypeView& device = schema().types()[0];
  Column renamed = device.columns[1];
  EXPECT_EQ(namesOf(device, renamed).described, "rx of each device (octets\\x0a\\)");
  renamed.name = "received";
  const FieldNames names = namesOf(device, renamed);
  EXPECT_EQ(names.described, "received of each device (rx of the adapter; octets\\x0a\\)");
  EXPECT_EQ(names.word, "device_received");
}

TEST_F(FieldMetricsTest, APeakLastsForItsSecondsWhoeverLooks) {
  plane(0, 0, 0);
  plane(1, 1000, 0);
  for (std::uint32_t second = 2; second <= 7; ++second) {
    plane(second, 1000 + second, 0);
    for (int scraper = 0; scraper < 2; ++scraper)
      EXPECT_EQ(at(second).at("tev_plane_rx_peak_per_second device=d plane=3"), second <= 5   ? 1000
                                                                                : second == 6 ? 2
                                                                                              : 1);
  }
}

TEST_F(FieldMetricsTest, AStepThatIsTakenBackNeitherLowersTheTotalNorIsAPeak) {
  const std::uint32_t step =
      1'500'000'000;  // possibly half of the range, when it took twice as long
  std::uint32_t value = 0;
  double total = 0;
  const auto totalAt = [&](std::uint64_t second) {
    return at(second).at("tev_plane_rx_total device=d plane=3");
  };
  for (std::uint64_t second = 0; second < 5; ++second) plane(second, value += step, 0);
  total = totalAt(4);
  EXPECT_EQ(total, 4.0 * step);
  plane(7, value += 5, 0);  // the sample before was read late
  EXPECT_GE(totalAt(7), total);
  EXPECT_GE(at(7).at("tev_plane_rx_unknown_steps_total device=d plane=3"), 1);
}

TEST_F(FieldMetricsTest, ADeviceOfTwoTypesHasNoMetricTwice) {
  for (std::uint64_t second = 0; second < 2; ++second) {
    plane(second, 1, 10, 1);
    plane(second, 2, 20, 2);
  }
  EXPECT_EQ(at(1).at("tev_plane_rtt device=d plane=3"), 10);
}

TEST_F(FieldMetricsTest, TwoFieldsOfOneNameAreRefused) {
  const struct {
    std::vector<const char*> fields;
    std::vector<std::string> gauges;
    const char* error;  // empty: accepted
  } cases[] = {
      {{"a.b", "a_b"}, {}, "'a.b' of each device and 'a_b' of each device would both be"},
      {{"a", "a_total"}, {}, "tev_device_a_total"},
      {{"a", "a_total"}, {"a"}, ""},
      {{"a", "a_recent_min"}, {"a", "a_recent_min"}, "tev_device_a_recent_min"},
      {{"a", "a_min"}, {"a"}, ""},
      {{"ä", "ö"}, {}, "'ä' of each device and 'ö' of each device"},
  };
  for (const auto& one : cases) {
    test::SampleTypes types;
    types.add("t",
              {{"name", nullptr, "char", 0, 4},
               {one.fields[0], nullptr, "uint32_t", 0, 1},
               {one.fields[1], nullptr, "uint32_t", 0, 1}},
              {"name"});
    const SchemaView schema = SchemaView::fromTypeSystem(*types);
    const Projection projection(schema);
    CountingOptions counting;
    counting.gauges = one.gauges;
    const Figures figures(projection, counting);
    const std::string error = errorOf<UsageError>([&] {
      MetricNames names;
      const FieldMetrics metrics(figures, std::chrono::seconds(3), names);
    });
    EXPECT_THAT(error, HasSubstr(one.error));
    EXPECT_EQ(error.empty(), *one.error == '\0') << error;
  }
}

TEST(MetricsPage, WhatIsOutOfDateIsNotServedAndAgesGoOn) {
  using std::chrono::seconds;
  MetricsPage page;
  const auto labels = std::make_shared<const Labels>(Labels{{"device", "d"}});
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_THAT(page.families(begin), IsEmpty());
  page.publish(std::make_shared<const MetricsSnapshot>(
      MetricsSnapshot{begin,
                      seconds(10),
                      {{"field", "", MetricType::gauge, {{labels, 1}}}},
                      {},
                      {{labels, true, 2}}}));
  for (const int later : {0, 10, 11}) {
    const Values values = valuesOf(page.families(begin + seconds(later)));
    EXPECT_EQ(values.at("tev_last_sample_age_seconds device=d"), 2 + later);
    EXPECT_EQ(values.at("tev_up device=d"), later <= 10);
    EXPECT_EQ(values.count("field device=d"), later <= 10 ? 1u : 0u);
  }
}

int connectTo(const std::string& url) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
  const int connection = socket(AF_INET, SOCK_STREAM, 0);
  EXPECT_EQ(connect(connection, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  return connection;
}

std::string scrape(const std::string& url) {
  const int connection = connectTo(url);
  const std::string request = "GET /metrics HTTP/1.0\r\n\r\n";
  EXPECT_EQ(send(connection, request.data(), request.size(), 0),
            static_cast<ssize_t>(request.size()));
  std::string answer;
  char part[4096];
  for (ssize_t n; (n = recv(connection, part, sizeof part, 0)) > 0;)
    answer.append(part, static_cast<std::size_t>(n));
  close(connection);
  return answer;
}

TEST(Exporter, ServesWhatItCollectsBesideIdleConnections) {
  if (!Exporter::isBuilt()) {
    EXPECT_THROW(Exporter({}, {}), UsageError);
    return;
  }
  bool fails = false;
  const auto labels = std::make_shared<const Labels>(Labels{{"device", "a\"b\\c\nd"}});
  Exporter exporter({}, [&]() -> std::vector<MetricFamily> {
    if (fails) throw std::runtime_error("no");
    return {{"tev_x", "one\ntwo\\", MetricType::counter, {{labels, 9007199254740992.0}}},
            {"tev_empty", "", MetricType::gauge, {}}};
  });
  std::vector<int> idle;
  for (int i = 0; i < 8; ++i) idle.push_back(connectTo(exporter.url()));
  EXPECT_THAT(scrape(exporter.url()),
              AllOf(HasSubstr("# HELP tev_x one\\ntwo\\\\\n# TYPE tev_x counter\n"),
                    HasSubstr("tev_x{device=\"a\\\"b\\\\c\\nd\"} 9007199254740992\n"),
                    Not(HasSubstr("tev_empty"))));
  fails = true;
  EXPECT_THAT(scrape(exporter.url()), HasSubstr("tev_collection_failed 1\n"));
  ListenAddress same;
  same.port =
      static_cast<std::uint16_t>(std::stoi(exporter.url().substr(exporter.url().rfind(':') + 1)));
  EXPECT_THAT(errorOf<RunError>([&] { Exporter(same, {}); }), HasSubstr("Address already in use"));
  for (const int connection : idle) close(connection);
}

}  // namespace
}  // namespace tev::host
