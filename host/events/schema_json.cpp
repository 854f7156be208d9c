// Reads the JSON text of a schema (docs/formats.md).
#include <fmt/format.h>

#include <cstdint>
#include <limits>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>

#include "host/events/declared_schema.h"
#include "host/support/errors.h"
#include "host/support/text.h"
#include "src/data/schema/schema_id.h"

namespace tev::host {
namespace {

using nlohmann::json;

// The text omits names that are not UTF-8.
constexpr char kUnnamed[] = "unnamed";

template <class... Arguments>
[[noreturn]] void refuse(fmt::format_string<Arguments...> problem, Arguments&&... arguments) {
  throw RunError("the schema's text is broken: " +
                 asPrintable(fmt::format(problem, std::forward<Arguments>(arguments)...)));
}

const json& member(const json& object, const char* key) {
  if (!object.is_object() || !object.contains(key)) refuse("there is no \"{}\"", key);
  return object[key];
}

const json& list(const json& object, const char* key) {
  const json& value = member(object, key);
  if (!value.is_array()) refuse("\"{}\" is not a list", key);
  return value;
}

std::string text(const json& object, const char* key, const char* otherwise) {
  if (!object.is_object() || !object.contains(key)) return otherwise;
  const json& value = object[key];
  if (!value.is_string()) refuse("\"{}\" is not a text", key);
  return value.get<std::string>();
}

template <class Number>
Number number(const json& object, const char* key) {
  const json& value = member(object, key);
  constexpr std::uint64_t kMost = std::numeric_limits<Number>::max();
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > kMost)
    refuse("\"{}\" is not a whole number from 0 to {}", key, kMost);
  return value.get<Number>();
}

// The types that a field can have: the built-in types and the earlier types of its schema.
class FieldReader {
 public:
  void add(const DeclaredType& type, std::size_t index) {
    known_.emplace(type.name, Known{index, type.size});
  }

  DeclaredField read(const json& object) const {
    DeclaredField field;
    field.name = text(object, "field_name", kUnnamed);
    field.description = asPrintable(text(object, "description", ""));
    field.counting_mode = tev_value_type_from_string(text(object, "counting_mode", "").c_str());
    if (object.contains("array_length"))
      field.count = number<std::uint16_t>(object, "array_length");
    field.offset = number<std::uint64_t>(object, "offset");
    field.element_size = number<std::uint64_t>(object, "type_size");
    field.key = number<std::uint16_t>(object, "index");

    const std::string type_name = text(object, "type_name", "");
    field.builtin_id = tev_builtin_type_from_name(type_name.c_str());
    if (field.builtin_id == TEV_TYPE_NONE) {
      const auto known = known_.find(type_name);
      if (known == known_.end() || known->second.size != field.element_size)
        refuse("field '{}' has the type '{}' of {} bytes, which was not declared before it",
               field.name, type_name, field.element_size);
      field.composite = known->second.index;
    }
    return field;
  }

 private:
  struct Known {
    std::size_t index;
    std::uint64_t size;
  };
  std::map<std::string, Known> known_;
};

// The text gives an array's length only when it is greater than 1. Fields are contiguous, so an
// array has length 0 when there is no room for an element before the next field.
void findEmptyArrays(DeclaredType& type) {
  std::uint64_t end = type.size;
  for (std::size_t i = type.fields.size(); i-- > 0;) {
    DeclaredField& field = type.fields[i];
    if (field.count == 1 && field.offset == end && field.element_size > 0) field.count = 0;
    end = field.offset;
  }
}

DeclaredSchema read(const json& object) {
  DeclaredSchema schema;
  schema.name = asPrintable(text(object, "provider_name", ""));
  FieldReader fields;
  for (const json& one : list(object, "types")) {
    if (number<std::size_t>(one, "type_index") != schema.types.size())
      refuse("\"type_index\" of the type at position {} differs from it", schema.types.size());
    if (schema.types.size() == TEV_MAX_TYPES)
      refuse("it has more than {} types", int{TEV_MAX_TYPES});
    DeclaredType& type = schema.types.emplace_back();
    type.name = text(one, "name", kUnnamed);
    type.size = number<std::uint64_t>(one, "size");
    for (const json& field : list(one, "fields")) type.fields.push_back(fields.read(field));
    findEmptyArrays(type);
    fields.add(type, schema.types.size() - 1);
  }
  return schema;
}

}  // namespace

DeclaredSchema declaredSchema(std::string_view json_text) {
  if (json_text.ends_with('\n')) json_text.remove_suffix(1);
  json document;
  try {
    document = json::parse(json_text);
  } catch (const json::exception& error) {
    refuse("{}", error.what());
  }
  DeclaredSchema schema = read(document);
  const auto id = tev::schema::idOfText(json_text);
  char id_string[TEV_SCHEMA_ID_STRING_SIZE] = "";
  if (id) tev_schema_id_to_schema_string(&*id, id_string);
  schema.id = id_string;
  schema.text = json_text;
  return schema;
}

}  // namespace tev::host
