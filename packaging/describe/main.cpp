// Writes what is generated from the description of the command line and of the plug-in's options:
//   tev-describe manual FOLDER PROSE PLUGIN   manual pages; PROSE is the folder of *.man files
//   tev-describe completion FOLDER PLUGIN     completion scripts for bash and zsh
#include <cstdlib>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "host/plugin/plugin.h"
#include "packaging/describe/completion.h"
#include "packaging/describe/pages.h"

namespace {

namespace fs = std::filesystem;
using namespace tev::describe;

// Of the source, if it is given, so that a page can be built again from the same source.
std::string today() {
  const char* const epoch = std::getenv("SOURCE_DATE_EPOCH");
  const std::time_t time = epoch ? std::strtoll(epoch, nullptr, 10) : std::time(nullptr);
  char text[] = "2026-01-31";
  std::strftime(text, sizeof text, "%Y-%m-%d", std::gmtime(&time));
  return text;
}

void write(const fs::path& path, const std::string& text) {
  fs::create_directories(path.parent_path());
  std::ofstream file(path);
  file << text;
  if (!file.flush()) throw std::runtime_error("cannot write " + path.string());
}

// Empty when the file does not exist.
std::string read(const fs::path& path) {
  std::ostringstream text;
  if (std::ifstream file(path); file) text << file.rdbuf();
  return text.str();
}

tev::host::OptionTable optionsOf(const std::string& plugin) {
  auto options = tev::host::readOptionTable(tev::host::Plugin(plugin).getOption());
  if (options.empty()) throw std::runtime_error(plugin + " describes no options");
  return options;
}

void writeCompletion(const fs::path& folder, const std::string& plugin) {
  std::vector<std::string> keys;
  for (const auto& option : optionsOf(plugin)) keys.push_back(option.key);
  const ProgramText text = describeProgram();
  write(folder / "tev-host", bashCompletion(text, keys));
  write(folder / "_tev-host", zshCompletion(text, keys));
}

void writeManual(const fs::path& folder, const fs::path& prose, const std::string& plugin) {
  const auto frame = [&](const std::string& page) {
    return PageFrame{today(), read(prose / (page + ".man"))};
  };
  const ProgramText text = describeProgram();
  write(folder / "host/man1/tev-host.1", programPage(text, frame("tev-host")));
  for (const CommandText& command : text.commands) {
    const std::string page = "tev-host-" + command.name;
    write(folder / "host/man1" / (page + ".1"), commandPage(command, frame(page)));
  }
  write(folder / "plugin/man7/tev-multipath-options.7",
        optionsPage(optionsOf(plugin), frame("tev-multipath-options")));
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> words(argv + 1, argv + argc);
  try {
    if (words.size() == 4 && words[0] == "manual")
      writeManual(words[1], words[2], words[3]);
    else if (words.size() == 3 && words[0] == "completion")
      writeCompletion(words[1], words[2]);
    else
      throw std::runtime_error("wrong usage");
  } catch (const std::exception& error) {
    std::cerr << "tev-describe: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
