// What was built or installed together with this program.
#pragma once

#include <filesystem>

namespace tev::host {

struct Companions {
  std::filesystem::path plugin;
  std::filesystem::path simulator;
};

// For a program in this folder.
Companions companionsOf(const std::filesystem::path& program_folder);

// Those of the running program.
Companions findCompanions();

}  // namespace tev::host
