#pragma once

namespace tev::host {

// Whether TERM names a terminal that is known, and on which text can be written at any place.
bool isFullScreenTerminal();

}  // namespace tev::host
