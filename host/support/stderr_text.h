#pragma once

#include <string_view>

namespace tev::host {

// Writes lines to standard error, in a form that is safe for a terminal. Texts are left out while
// nobody reads standard error. Their number is reported later. May be called from any thread.
void showOnStderr(std::string_view lines);

}  // namespace tev::host
