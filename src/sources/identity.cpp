#include "src/sources/identity.h"

#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>

#include "tev/logger.h"

namespace tev::sources {
namespace {

std::optional<std::string> machineName() {
  char name[HOST_NAME_MAX + 1] = "";
  if (gethostname(name, sizeof name) != 0) {
    TEV_LOG_ERROR("[source] Failed to get host name: %s", std::strerror(errno));
    return std::nullopt;
  }
  name[sizeof name - 1] = '\0';  // a truncated name may have no terminator
  return std::string(name, std::strcspn(name, "."));
}

}  // namespace

std::optional<std::string> defaultIdentity() {
  if (const char* const id = tev_getenv("TEV_SOURCE_ID")) return id;
  if (const char* const host = tev_getenv("TEV_HOST_NAME")) return host;
  return machineName();
}

}  // namespace tev::sources
