// Figures as short texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "host/screen/model.h"
#include "host/screen/styled_text.h"
#include "host/screen/view.h"

namespace tev::host {

// The rate of a counter or the value of a gauge: "2.25k", "~" before a rate that is not certain,
// "?" for one that is not known, ".." when it is not decided what the field is, "" when there is no
// rate yet.
Piece pieceOf(const Reading& reading);
Piece pieceOf(const std::optional<DeviceFigure>& figure);

// "42 s", "2:05 min", "3:59 h".
std::string elapsedText(std::uint64_t usec);

// At most `width` characters. The end of a longer name remains, because it tells names apart:
// "plan~er_5".
std::string shortName(const std::string& name, std::size_t width);

// Of a device that does not deliver, or whose worst plane stands out: "rdma1: failing for 12 s:
// LINK_ON_FIRE", or "rdma0: plane 1 has 96 % of ecn_marked, x3.9 of the mean, for 8 s".
std::string sentenceOf(const ScreenModel& model, const DeviceEntry& entry,
                       const std::string& times);

// How long the worst plane has stood out.
std::string elapsedText(const ScreenModel& model, const WorstPlane& worst);

Role roleOf(DeviceState state);

}  // namespace tev::host
