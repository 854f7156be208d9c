#include "host/cli/companions.h"

#include <system_error>

namespace tev::host {

Companions companionsOf(const std::filesystem::path& program_folder) {
  // TEV_HOST_LIBDIR is the path from the program's folder to the libraries' folder. It is the same
  // in the build tree and in an installation.
  const auto libraries = (program_folder / TEV_HOST_LIBDIR).lexically_normal();
  return {libraries / "libevents_multipath_provider.so",
          libraries / "tev-simulator" / "libvuna_telemetry.so"};
}

Companions findCompanions() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return companionsOf(program.parent_path());
}

}  // namespace tev::host
