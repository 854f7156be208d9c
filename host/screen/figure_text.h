// Figures as short texts.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "host/screen/model.h"
#include "host/screen/styled_text.h"

namespace tev::host {

// The rate of a counter or the value of another field: "2.25k", "~" before a rate that is not
// certain, "?" for one that is not known, "" when there is none yet.
Piece pieceOf(const Reading& reading);
Piece pieceOf(const std::optional<DeviceFigure>& figure);

// "42 s", "15 min", "3 h".
std::string elapsedText(std::uint64_t usec);

// Of a device that does not deliver, or whose worst plane stands out: "rdma1: failing for 12 s:
// LINK_ON_FIRE", or "rdma0: plane 1 has 96 % of ecn_marked, x3.9 of the mean, for 8 s".
std::string sentenceOf(const DeviceModel& device, std::uint64_t now_usec, const std::string& times);

Role roleOf(DeviceState state);

}  // namespace tev::host
