#include "host/metrics/exporter.h"

#include <arpa/inet.h>
#include <fmt/format.h>
#include <netinet/in.h>
#include <prometheus/collectable.h>
#include <prometheus/exposer.h>
#include <prometheus/metric_family.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <exception>
#include <thread>
#include <utility>

#include "host/support/errors.h"
#include "host/support/host_threads.h"
#include "host/support/text.h"
#include "host/timing/thread_times.h"

namespace tev::host {
namespace {

// A connection occupies a thread until its request is complete, or for the time of patience. Idle
// connections must not keep a scraper away.
constexpr int kThreads = 32;
constexpr int kPatienceMs = 1000;

// The library writes help texts as they are.
std::string escaped(const std::string& help) {
  std::string text;
  for (const char c : asUtf8(help)) {
    if (c == '\n')
      text += "\\n";
    else if (c == '\\')
      text += "\\\\";
    else
      text += c;
  }
  return text;
}

prometheus::MetricFamily converted(const MetricFamily& family) {
  prometheus::MetricFamily result;
  result.name = family.name;
  result.help = escaped(family.help);
  const bool counts = family.type == MetricType::counter;
  result.type = counts ? prometheus::MetricType::Counter : prometheus::MetricType::Gauge;
  result.metric.reserve(family.metrics.size());
  for (const Metric& one : family.metrics) {
    prometheus::ClientMetric& metric = result.metric.emplace_back();
    (counts ? metric.counter.value : metric.gauge.value) = one.value;
    if (!one.labels) continue;
    metric.label.reserve(one.labels->size());
    for (const auto& [name, value] : *one.labels) metric.label.push_back({name, value});
  }
  return result;
}

prometheus::MetricFamily failure() {
  prometheus::MetricFamily family;
  family.name = "tev_collection_failed";
  family.help = "The metrics could not be collected.";
  family.type = prometheus::MetricType::Gauge;
  family.metric.emplace_back().gauge.value = 1;
  return family;
}

class Collector final : public prometheus::Collectable {
 public:
  explicit Collector(Exporter::Collect collect) : collect_(std::move(collect)) {}

  // An exception would end the process.
  std::vector<prometheus::MetricFamily> Collect() const override {
    std::vector<prometheus::MetricFamily> families;
    try {
      // A family without metrics would be a help text without a metric.
      for (const MetricFamily& family : collect_())
        if (!family.metrics.empty()) families.push_back(converted(family));
    } catch (const std::exception&) {
      families.assign(1, failure());
    }
    return families;
  }

 private:
  Exporter::Collect collect_;
};

// Calls `use` with a new socket and the address.
template <class Use>
auto withSocket(const ListenAddress& where, Use&& use) {
  sockaddr_in ipv4{};
  ipv4.sin_family = AF_INET;
  ipv4.sin_port = htons(where.port);
  sockaddr_in6 ipv6{};
  ipv6.sin6_family = AF_INET6;
  ipv6.sin6_port = htons(where.port);
  const bool is_ipv6 = where.isIpv6();
  if (is_ipv6)
    inet_pton(AF_INET6, where.address.c_str(), &ipv6.sin6_addr);
  else
    inet_pton(AF_INET, where.address.c_str(), &ipv4.sin_addr);
  const auto* const address =
      is_ipv6 ? reinterpret_cast<const sockaddr*>(&ipv6) : reinterpret_cast<const sockaddr*>(&ipv4);
  const socklen_t size = is_ipv6 ? sizeof ipv6 : sizeof ipv4;

  const int descriptor = socket(is_ipv6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const auto result = use(descriptor, address, size);
  if (descriptor >= 0) close(descriptor);
  return result;
}

// Throws RunError with the reason, which the library does not tell.
void expectFree(const ListenAddress& where) {
  const int error = withSocket(where, [](int descriptor, const sockaddr* address, socklen_t size) {
    const int yes = 1;
    const bool is_free = descriptor >= 0 &&
                         setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes) == 0 &&
                         bind(descriptor, address, size) == 0 && listen(descriptor, 1) == 0;
    return is_free ? 0 : errno;
  });
  if (error != 0)
    throw RunError(
        fmt::format("--prometheus: cannot listen on {}: {}", where.text(), std::strerror(error)));
}

void connectOnce(const ListenAddress& where) {
  withSocket(where, [](int descriptor, const sockaddr* address, socklen_t size) {
    return descriptor >= 0 && connect(descriptor, address, size) == 0;
  });
}

}  // namespace

struct Exporter::Server {
  Server(const ListenAddress& where, Collect collect)
      : collector(std::make_shared<Collector>(std::move(collect))),
        exposer(std::vector<std::string>{"listening_ports", where.text(), "num_threads",
                                         std::to_string(kThreads), "request_timeout_ms",
                                         std::to_string(kPatienceMs)}) {
    exposer.RegisterCollectable(collector);
  }

  std::shared_ptr<Collector> collector;  // the exposer has a weak pointer
  prometheus::Exposer exposer;
};

bool Exporter::isBuilt() {
  return true;
}

// Waiting for a connection, the library looks only every two seconds whether it is to end.
Exporter::~Exporter() {
  std::atomic<bool> is_over = false;
  std::thread waking([&] {
    while (!is_over) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      connectOnce(real_);
    }
  });
  server_.reset();
  is_over = true;
  waking.join();
  for (const pid_t thread : threads_) removeHostThread(thread);
}

Exporter::Exporter(const ListenAddress& address, Collect collect) : real_(address) {
  expectFree(address);
  const auto before = threadTimes();
  try {
    server_ = std::make_unique<Server>(address, std::move(collect));
  } catch (const std::exception& error) {
    throw RunError(fmt::format("--prometheus: cannot listen on {}: {}", address.text(),
                               address.isIpv6() ? "the HTTP library of this system lacks IPv6"
                                                : asPrintable(error.what())));
  }
  for (const auto& [thread, time] : threadTimes())
    if (!before.contains(thread)) threads_.push_back(thread);
  for (const pid_t thread : threads_) addHostThread(thread);
  const auto ports = server_->exposer.GetListeningPorts();
  if (!ports.empty()) real_.port = static_cast<std::uint16_t>(ports.front());
  url_ = fmt::format("http://{}/metrics", real_.text());
}

}  // namespace tev::host
