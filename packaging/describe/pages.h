// Manual pages.
#pragma once

#include <string>

#include "host/plugin/option_table.h"
#include "packaging/describe/program_text.h"

namespace tev::describe {

struct PageFrame {
  std::string date;   // "2026-01-31"
  std::string prose;  // sections written by hand; empty: none
};

// tev-host(1).
std::string programPage(const ProgramText& text, const PageFrame& frame);

// tev-host-run(1) and the like.
std::string commandPage(const CommandText& command, const PageFrame& frame);

// tev-multipath-options(7).
std::string optionsPage(const tev::host::OptionTable& options, const PageFrame& frame);

}  // namespace tev::describe
