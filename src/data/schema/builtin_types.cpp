#include <cstring>
#include <iterator>

#include "tev/schema.h"

namespace {

struct BuiltinType {
  const char* name;
  std::size_t size;
};

// A type's id is its position, from 1.
constexpr BuiltinType kBuiltinTypes[] = {
    {"bool", 1},
    {"char", 1},
    {"short", 2},
    {"int", 4},
    {"long", 8},
    {"long long", 8},
    {"unsigned char", 1},
    {"unsigned short", 2},
    {"unsigned int", 4},
    {"unsigned long", 8},
    {"unsigned long long", 8},
    {"float", 4},
    {"double", 8},
    {"int8_t", 1},
    {"int16_t", 2},
    {"int32_t", 4},
    {"int64_t", 8},
    {"uint8_t", 1},
    {"uint16_t", 2},
    {"uint32_t", 4},
    {"uint64_t", 8},
    {"timestamp", 8},
};
static_assert(std::size(kBuiltinTypes) == TEV_TYPE_TIMESTAMP);

const BuiltinType* find(std::uint32_t id) {
  return id >= 1 && id <= std::size(kBuiltinTypes) ? &kBuiltinTypes[id - 1] : nullptr;
}

constexpr const char* kValueTypes[] = {"ABSOLUTE", "RUNNING_SUM", "DELTA"};
constexpr char kRunningSumSynonym[] = "ABSOLUTE_MONOTONIC";

}  // namespace

const char* tev_builtin_type_name(std::uint32_t id) {
  const BuiltinType* const type = find(id);
  return type ? type->name : nullptr;
}

std::size_t tev_builtin_type_size(std::uint32_t id) {
  const BuiltinType* const type = find(id);
  return type ? type->size : 0;
}

std::uint32_t tev_builtin_type_from_name(const char* name) {
  if (!name) return TEV_TYPE_NONE;
  for (std::uint32_t id = 1; id <= std::size(kBuiltinTypes); ++id)
    if (std::strcmp(kBuiltinTypes[id - 1].name, name) == 0) return id;
  return TEV_TYPE_NONE;
}

const char* tev_value_type_string(std::uint32_t value_type) {
  return value_type < std::size(kValueTypes) ? kValueTypes[value_type] : nullptr;
}

std::uint32_t tev_value_type_from_string(const char* name) {
  if (!name) return TEV_VALUE_UNKNOWN;
  for (std::uint32_t value = 0; value < std::size(kValueTypes); ++value)
    if (std::strcmp(kValueTypes[value], name) == 0) return value;
  if (std::strcmp(name, kRunningSumSynonym) == 0) return TEV_VALUE_RUNNING_SUM;
  return TEV_VALUE_UNKNOWN;
}
