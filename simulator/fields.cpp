#include "simulator/fields.h"

#include <cmath>
#include <utility>

namespace simulator {
namespace {

constexpr std::size_t kMaxTextBytes = 4096;

const char* nameOf(Json::Type type) {
  switch (type) {
    case Json::Type::null:
      return "null";
    case Json::Type::boolean:
      return "true or false";
    case Json::Type::string:
      return "a string";
    case Json::Type::array:
      return "an array";
    case Json::Type::object:
      return "an object";
    default:
      return "a number";
  }
}

void expect(const Located& value, Json::Type type) {
  if (value.json->type != type)
    value.refuse(std::string("must be ") + nameOf(type) + ", not " + nameOf(value.json->type));
}

bool isNumber(Json::Type type) {
  return type == Json::Type::unsigned_number || type == Json::Type::negative_number ||
         type == Json::Type::real_number;
}

std::string shortest(double value) {
  std::string text = std::to_string(value);
  while (text.back() == '0') text.pop_back();
  if (text.back() == '.') text.pop_back();
  return text;
}

}  // namespace

void Located::refuse(const std::string& reason) const {
  throw JsonError(json->line, place + (place.empty() ? "" : ": ") + reason);
}

std::uint64_t Located::number(std::uint64_t min, std::uint64_t max) const {
  const std::string range =
      "a whole number from " + std::to_string(min) + " to " + std::to_string(max);
  if (!isNumber(json->type)) refuse("must be " + range + ", not " + nameOf(json->type));
  if (json->type != Json::Type::unsigned_number || json->number < min || json->number > max)
    refuse("must be " + range);
  return json->number;
}

std::uint32_t Located::number32() const {
  return static_cast<std::uint32_t>(number(0, UINT32_MAX));
}

double Located::real(double min, double max) const {
  if (!isNumber(json->type)) refuse(std::string("must be a number, not ") + nameOf(json->type));
  if (!(json->real >= min && json->real <= max))
    refuse("must be a number from " + shortest(min) + " to " + shortest(max));
  return json->real;
}

bool Located::boolean() const {
  expect(*this, Json::Type::boolean);
  return json->boolean;
}

const std::string& Located::string() const {
  expect(*this, Json::Type::string);
  if (json->text.find('\0') != std::string::npos) refuse("must not hold a NUL");
  return json->text;
}

std::string Located::bytes() const {
  std::string text;
  if (json->type == Json::Type::array)
    for (const Located& item : items(kMaxTextBytes))
      text.push_back(static_cast<char>(item.number(0, 255)));
  else
    text = string();
  if (text.size() > kMaxTextBytes)
    refuse("must not be longer than " + std::to_string(kMaxTextBytes) + " bytes");
  return text;
}

std::vector<Located> Located::items(std::size_t max) const {
  expect(*this, Json::Type::array);
  if (json->items.size() > max) refuse("must not have more than " + std::to_string(max) + " items");
  std::vector<Located> items;
  items.reserve(json->items.size());
  for (std::size_t i = 0; i < json->items.size(); ++i)
    items.push_back({&json->items[i], place + "[" + std::to_string(i) + "]"});
  return items;
}

Fields::Fields(Located object) : object_(std::move(object)) {
  expect(object_, Json::Type::object);
  known_.resize(object_.json->members.size());
}

std::optional<Located> Fields::find(const char* key) {
  const std::vector<JsonMember>& members = object_.json->members;
  for (std::size_t i = 0; i < members.size(); ++i) {
    if (members[i].key != key) continue;
    known_[i] = true;
    return Located{&members[i].value, object_.place + (object_.place.empty() ? "" : ".") + key};
  }
  return std::nullopt;
}

Located Fields::require(const char* key) {
  auto value = find(key);
  if (!value) object_.refuse(std::string("key \"") + key + "\" is missing");
  return *value;
}

std::uint32_t Fields::number32(const char* key, std::uint32_t missing) {
  const auto value = find(key);
  return value ? value->number32() : missing;
}

std::uint64_t Fields::number(const char* key, std::uint64_t missing, std::uint64_t min,
                             std::uint64_t max) {
  const auto value = find(key);
  return value ? value->number(min, max) : missing;
}

bool Fields::boolean(const char* key, bool missing) {
  const auto value = find(key);
  return value ? value->boolean() : missing;
}

std::string Fields::bytes(const char* key) {
  const auto value = find(key);
  return value ? value->bytes() : std::string();
}

void Fields::refuseUnknown() const {
  for (std::size_t i = 0; i < known_.size(); ++i) {
    const JsonMember& member = object_.json->members[i];
    if (!known_[i])
      throw JsonError(member.line, object_.place + (object_.place.empty() ? "" : ": ") +
                                       "unknown key \"" + member.key + "\"");
  }
}

}  // namespace simulator
