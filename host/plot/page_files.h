// The parts of a page that do not depend on the recording. The build puts them into the program.
#pragma once

#include <string_view>

namespace tev::host {

struct PageFiles {
  std::string_view html;
  std::string_view css;
  std::string_view uplot_css;
  std::string_view uplot_script;
  std::string_view uplot_licence;
  std::string_view script;
};

// Null when the build did not have the plotting library.
const PageFiles* pageFiles();

}  // namespace tev::host
