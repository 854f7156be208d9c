#include "host/events/values.h"

#include <fmt/format.h>

#include <charconv>
#include <cmath>
#include <concepts>
#include <cstring>
#include <iterator>
#include <limits>

#include "host/support/text.h"

namespace tev::host {
namespace {

template <class T>
T load(const std::uint8_t* bytes) {
  T value;
  std::memcpy(&value, bytes, sizeof value);
  return value;
}

void append(std::string& out, bool value) {
  out += value ? "true" : "false";
}

// Most values are integers, for which this is faster than fmt::format_to().
void append(std::string& out, std::integral auto value) {
  char digits[std::numeric_limits<std::uint64_t>::digits10 + 2];
  const char* const end = std::to_chars(std::begin(digits), std::end(digits), value).ptr;
  out.append(digits, static_cast<std::size_t>(end - digits));
}

void append(std::string& out, std::floating_point auto value) {
  fmt::format_to(std::back_inserter(out), "{}", value);
}

// Calls `use` with the element, as the C++ type that its built-in type stands for.
template <class Use>
auto withElement(const Column& column, const std::uint8_t* event, std::size_t element, Use&& use) {
  const std::uint8_t* const bytes = event + column.offset + element * column.element_size;
  switch (column.builtin_id) {
    case TEV_TYPE_BOOL:
      return use(*bytes != 0);  // the byte may have any value
    case TEV_TYPE_CHAR:
      return use(load<char>(bytes));
    case TEV_TYPE_SHORT:
    case TEV_TYPE_INT16:
      return use(load<std::int16_t>(bytes));
    case TEV_TYPE_INT:
    case TEV_TYPE_INT32:
      return use(load<std::int32_t>(bytes));
    case TEV_TYPE_LONG:
    case TEV_TYPE_LONG_LONG:
    case TEV_TYPE_INT64:
      return use(load<std::int64_t>(bytes));
    case TEV_TYPE_INT8:
      return use(load<std::int8_t>(bytes));
    case TEV_TYPE_UCHAR:
    case TEV_TYPE_UINT8:
      return use(load<std::uint8_t>(bytes));
    case TEV_TYPE_USHORT:
    case TEV_TYPE_UINT16:
      return use(load<std::uint16_t>(bytes));
    case TEV_TYPE_UINT:
    case TEV_TYPE_UINT32:
      return use(load<std::uint32_t>(bytes));
    case TEV_TYPE_FLOAT:
      return use(load<float>(bytes));
    case TEV_TYPE_DOUBLE:
      return use(load<double>(bytes));
    default:
      return use(load<std::uint64_t>(bytes));  // unsigned long (long), uint64_t, timestamp
  }
}

}  // namespace

bool isText(const Column& column) {
  return column.builtin_id == TEV_TYPE_CHAR;
}

bool isCounterSized(const Column& column) {
  switch (column.builtin_id) {
    case TEV_TYPE_UINT:
    case TEV_TYPE_UINT32:
    case TEV_TYPE_ULONG:
    case TEV_TYPE_ULONG_LONG:
    case TEV_TYPE_UINT64:
      return column.count == 1;
    default:
      return false;
  }
}

std::string_view textOf(const Column& column, const std::uint8_t* event) {
  const auto* const text = reinterpret_cast<const char*>(event + column.offset);
  return {text, strnlen(text, column.count)};
}

double numberOf(const Column& column, const std::uint8_t* event) {
  return withElement(column, event, 0, [](auto value) { return static_cast<double>(value); });
}

bool isFinite(const Column& column, const std::uint8_t* event, std::size_t element) {
  return withElement(column, event, element,
                     [](auto value) { return std::isfinite(static_cast<double>(value)); });
}

void appendElement(std::string& out, const Column& column, const std::uint8_t* event,
                   std::size_t element) {
  withElement(column, event, element, [&out](auto value) { append(out, value); });
}

void appendPlain(std::string& out, const Column& column, const std::uint8_t* event) {
  if (isText(column)) {
    out += asUtf8(textOf(column, event));
    return;
  }
  for (std::size_t i = 0; i < column.count; ++i) {
    if (i > 0) out += ' ';
    appendElement(out, column, event, i);
  }
}

}  // namespace tev::host
