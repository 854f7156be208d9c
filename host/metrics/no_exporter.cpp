// In place of the exporter, in a build without its library.
#include "host/metrics/exporter.h"
#include "host/support/errors.h"

namespace tev::host {

struct Exporter::Server {};

bool Exporter::isBuilt() {
  return false;
}

Exporter::Exporter(const ListenAddress&, Collect) {  // NOLINT: as the declaration
  throw UsageError("tev-host was built without Prometheus");
}

Exporter::~Exporter() = default;

}  // namespace tev::host
