#include "host/cli/companions.h"

#include <system_error>

namespace tev::host {

Companions companionsOf(const std::filesystem::path& program_folder) {
  // The paths from the program's folder are the same in the build tree and in an installation.
  const auto inFolder = [&](const char* folder, const char* name) {
    return (program_folder / folder / name).lexically_normal();
  };
  return {inFolder(TEV_HOST_PLUGINDIR, "libevents_multipath_provider.so"),
          inFolder(TEV_HOST_SIMULATOR_LIBDIR, "libvuna_telemetry.so")};
}

Companions findCompanions() {
  std::error_code error;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
  return companionsOf(program.parent_path());
}

}  // namespace tev::host
