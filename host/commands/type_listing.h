#pragma once

#include <string>

#include "host/events/schema_view.h"

namespace tev::host {

// The name of the column's built-in type, with its number of elements: "uint32_t", "char[5]".
std::string typeName(const Column& column);

// Appends the type's name and size, and a line per column: offset, type, name, description.
void appendType(std::string& out, const TypeView& type);

}  // namespace tev::host
