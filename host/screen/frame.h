// The whole screen: the page between the title and the keys.
#pragma once

#include "host/screen/pages.h"

namespace tev::host {

struct Frame {
  Lines lines;  // one for each row
  ScreenPlace place;
};

Frame drawFrame(const ScreenModel& model, const View& view, const Symbols& symbols,
                ScreenSize size);

}  // namespace tev::host
