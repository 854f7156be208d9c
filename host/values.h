// Single values of events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/schema_view.h"

namespace tev::host {

// A column of char is one text, whatever its length.
bool isText(const Column& column);

// Whether the column is one unsigned number of at least 32 bits: what may be a counter.
bool isCounterSized(const Column& column);

// The text of a text column, up to its first NUL, as it stands.
std::string_view textOf(const Column& column, const std::uint8_t* event);

// The value of a column of unsigned numbers.
std::uint64_t unsignedOf(const Column& column, const std::uint8_t* event);

// Whether the element is a number at all: not an infinity, nor "not a number".
bool isFinite(const Column& column, const std::uint8_t* event, std::size_t element);

// Appends an element of a column that is not text: decimal digits, or true and false.
void appendElement(std::string& out, const Column& column, const std::uint8_t* event,
                   std::size_t element);

// Appends the whole column: the text, or the elements with blanks in between.
void appendPlain(std::string& out, const Column& column, const std::uint8_t* event);

}  // namespace tev::host
