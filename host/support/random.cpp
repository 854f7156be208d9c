#include "host/support/random.h"

#include <sys/random.h>

#include "host/support/errors.h"

namespace tev::host {

std::uint64_t randomNumber() {
  std::uint64_t number = 0;
  if (getrandom(&number, sizeof number, 0) != sizeof number)
    throw RunError("the system does not provide random numbers");
  return number;
}

}  // namespace tev::host
