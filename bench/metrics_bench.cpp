// The cost of one scrape, from the connection to the last byte, over loopback. The baseline is a
// bare server that sends as many bytes. "publish_us" is what an update of the metrics costs the
// thread that samples.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "bench/batch.h"
#include "bench/compare.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/metrics/exporter.h"
#include "host/metrics/field_metrics.h"
#include "host/metrics/metrics_page.h"

namespace tev::bench {
namespace {

constexpr int kPasses = 10;  // in an update
constexpr char kRequest[] = "GET /metrics HTTP/1.0\r\n\r\n";

int loopbackSocket(std::uint16_t port, bool listens) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto* const where = reinterpret_cast<const sockaddr*>(&address);
  const bool works =
      listens ? bind(descriptor, where, sizeof address) == 0 && listen(descriptor, 8) == 0
              : connect(descriptor, where, sizeof address) == 0;
  if (works) return descriptor;
  close(descriptor);
  return -1;
}

// The number of bytes of a page.
std::size_t scrape(std::uint16_t port) {
  const int connection = loopbackSocket(port, false);
  std::vector<char> page(1 << 20);
  std::size_t size = 0;
  if (send(connection, kRequest, sizeof kRequest - 1, 0) > 0)
    for (ssize_t n; (n = recv(connection, page.data(), page.size(), 0)) > 0;)
      size += static_cast<std::size_t>(n);
  close(connection);
  return size;
}

class BareServer {
 public:
  explicit BareServer(std::size_t bytes) : bytes_(bytes, 'x') {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this] { run(); });
  }
  ~BareServer() {
    shutdown(socket_, SHUT_RDWR);
    thread_.join();
    close(socket_);
  }

  std::uint16_t port() const { return port_; }

 private:
  void run() {
    for (int connection; (connection = accept(socket_, nullptr, nullptr)) >= 0; close(connection)) {
      char request[sizeof kRequest];
      if (recv(connection, request, sizeof request, 0) <= 0) continue;
      std::size_t sent = 0;
      for (ssize_t n = 1; sent < bytes_.size() && n > 0; sent += static_cast<std::size_t>(n))
        n = send(connection, bytes_.data() + sent, bytes_.size() - sent, MSG_NOSIGNAL);
    }
  }

  std::string bytes_;
  int socket_ = loopbackSocket(0, true);
  std::uint16_t port_ = 0;
  std::thread thread_;
};

// The metrics of some devices after two seconds of samples.
class Served {
 public:
  explicit Served(std::uint32_t devices) : batch_(devices, kPasses, 1'000'000 / kPasses) {
    for (int second = 0; second < 2; ++second, batch_.advance())
      host::decodeBlocks(schema_, batch_.blocks(), [&](const host::Event& event) {
        const host::Series& series = series_.of(event);
        figures_.sample(event, series);
        metrics_.sample(event, series);
        devices_.insert(series.device);
      });
  }

  void publish() {
    auto snapshot = std::make_shared<host::MetricsSnapshot>();
    snapshot->fields = metrics_.families(batch_.lastUsec(), devices_);
    snapshot->at = std::chrono::steady_clock::now();
    snapshot->silence = std::chrono::hours(1);
    page_.publish(std::move(snapshot));
  }

  host::Exporter::Collect collect() {
    return [this] { return page_.families(std::chrono::steady_clock::now()); };
  }

 private:
  const host::SchemaView schema_ = makeSchema();
  const host::Projection projection_{schema_};
  host::Figures figures_{projection_, knownKinds(), 1'000'000 / kPasses};
  host::SeriesTable series_;
  host::MetricNames names_;
  host::FieldMetrics metrics_{figures_, std::chrono::seconds(60), names_};
  host::MetricsPage page_;
  std::set<std::string> devices_;
  Batch batch_;
};

void metricsScrape(benchmark::State& state) {
  Served served(static_cast<std::uint32_t>(state.range(0)));
  std::vector<double> publish_ns;
  for (int i = 0; i < 20; ++i) publish_ns.push_back(nanoseconds([&] { served.publish(); }, 1));
  const host::Exporter exporter({}, served.collect());
  const std::string& url = exporter.url();
  const auto port = static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1)));
  const std::size_t size = scrape(port);
  const BareServer bare(size);
  compare(
      state, static_cast<double>(size), [&] { scrape(port); }, [&] { scrape(bare.port()); }, [] {},
      [] {}, 1);
  state.counters["page_KB"] = static_cast<double>(size) / 1e3;
  state.counters["publish_us"] = median(publish_ns) * 1e-3;
}
BENCHMARK(metricsScrape)->ArgName("devices")->Arg(1)->Arg(16)->UseManualTime()->MinTime(0.3);

}  // namespace
}  // namespace tev::bench
