#pragma once

#include <cstdint>
#include <string>

#include "host/events/schema_view.h"

namespace tev::host {

// Appends the column's value in an event: a text, a number or a list of numbers. Numbers that are
// not finite become null.
void appendJsonValue(std::string& out, const Column& column, const std::uint8_t* event);

// `,"name":`
std::string jsonLabel(const std::string& name);

}  // namespace tev::host
