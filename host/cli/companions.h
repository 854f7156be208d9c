// What was built or installed together with this program.
#pragma once

#include <filesystem>

namespace tev::host {

struct Companions {
  std::filesystem::path plugin;
  std::filesystem::path simulator;
};

// The companions of a program in this folder.
Companions companionsOf(const std::filesystem::path& program_folder);

// The companions of the running program.
Companions findCompanions();

}  // namespace tev::host
