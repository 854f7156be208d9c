#include "host/support/host_name.h"

#include <limits.h>
#include <unistd.h>

namespace tev::host {

std::string hostName() {
  char name[HOST_NAME_MAX + 1] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

}  // namespace tev::host
