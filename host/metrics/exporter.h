// Serves metrics over HTTP, in the text format of Prometheus.
#pragma once

#include <sys/types.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/metrics/family.h"
#include "host/metrics/listen_address.h"

namespace tev::host {

class Exporter {
 public:
  // Makes what one scrape shows. Several threads call it at once.
  using Collect = std::function<std::vector<MetricFamily>()>;

  // Whether this build has the library that it needs.
  static bool isBuilt();

  // Serves from now on. No other thread may begin meanwhile. Throws RunError when it cannot listen
  // there, and UsageError when the build lacks the library.
  Exporter(const ListenAddress& address, Collect collect);

  // Waits for the scrapes that have begun.
  ~Exporter();
  Exporter(const Exporter&) = delete;
  Exporter& operator=(const Exporter&) = delete;

  // "http://127.0.0.1:9464/metrics", with the real port.
  const std::string& url() const { return url_; }

 private:
  struct Server;

  std::unique_ptr<Server> server_;
  ListenAddress real_;  // with the real port
  std::string url_;
  std::vector<pid_t> threads_;  // that serve
};

}  // namespace tev::host
