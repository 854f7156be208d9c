// Single values of events.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "host/events/schema_view.h"

namespace tev::host {

// Whether the column is an array of char, which is one text.
bool isText(const Column& column);

// Whether the column may be a counter: one unsigned number of at least 32 bits.
bool isCounterSized(const Column& column);

// The bytes of a text column up to the first NUL.
std::string_view textOf(const Column& column, const std::uint8_t* event);

// The value of a column for which isCounterSized() returns true.
inline std::uint64_t unsignedOf(const Column& column, const std::uint8_t* event) {
  if (column.element_size == sizeof(std::uint32_t)) {
    std::uint32_t value;
    std::memcpy(&value, event + column.offset, sizeof value);
    return value;
  }
  std::uint64_t value;
  std::memcpy(&value, event + column.offset, sizeof value);
  return value;
}

// The value of a column of one element that is not text. Large integers lose their last digits.
double numberOf(const Column& column, const std::uint8_t* event);

// False for infinities and for "not a number".
bool isFinite(const Column& column, const std::uint8_t* event, std::size_t element);

// Appends an element of a column that is not text: decimal digits, or true and false.
void appendElement(std::string& out, const Column& column, const std::uint8_t* event,
                   std::size_t element);

// Appends the whole column: the text, or the elements with blanks in between.
void appendPlain(std::string& out, const Column& column, const std::uint8_t* event);

}  // namespace tev::host
