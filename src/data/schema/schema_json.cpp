#include "src/data/schema/schema_json.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "src/support/guard.h"

namespace tev::schema {
namespace {

// A JSON object or array. Each item is on its own line, indented by four more blanks. The JSON
// library is used only for texts: its documents allocate while they are destroyed, which ends the
// process when memory is short.
class Block {
 public:
  Block(std::string_view brackets, std::size_t depth)
      : brackets_(brackets), depth_(depth), text_(brackets.substr(0, 1)) {}

  void element(std::string_view json) {
    text_ += text_.size() == 1 ? "\n" : ",\n";
    indent(depth_ + 1);
    text_ += json;
  }

  void member(std::string_view key, std::string_view json) {
    element('"' + std::string(key) + "\": " + std::string(json));
  }

  // Omits the key when the text is null or not UTF-8.
  void text(std::string_view key, const char* value) {
    const auto json = value ? quoted(value) : std::nullopt;
    if (json) member(key, *json);
  }

  void number(std::string_view key, std::uint64_t value) { member(key, std::to_string(value)); }

  std::string close() && {
    if (text_.size() > 1) {
      text_ += '\n';
      indent(depth_);
    }
    text_ += brackets_[1];
    return std::move(text_);
  }

 private:
  static std::optional<std::string> quoted(const char* value) {
    std::string json;
    try {
      json = nlohmann::json(value).dump();
    } catch (const nlohmann::json::type_error&) {  // not UTF-8
      return std::nullopt;
    }
    for (auto slash = json.find('/'); slash != std::string::npos; slash = json.find('/', slash + 2))
      json.insert(slash, 1, '\\');
    return json;
  }

  void indent(std::size_t depth) { text_.append(4 * depth, ' '); }

  std::string_view brackets_;
  std::size_t depth_;
  std::string text_;
};

// Levels of the document.
enum : std::size_t { kSchemaDepth, kTypesDepth, kTypeDepth, kFieldsDepth, kFieldDepth };

std::string fieldObject(const tev_type_field_definition_t& field) {
  Block object("{}", kFieldDepth);
  object.text("field_name", field.field_name);
  object.text("description", field.description);
  object.text("type_name", field.type_name);
  object.text("counting_mode", tev_value_type_string(field.counting_mode));
  if (field.array_length > 1) object.number("array_length", field.array_length);
  object.number("offset", field.offset);
  object.number("type_size", field.type_size);
  object.number("index", field.index);
  return std::move(object).close();
}

std::string typeObject(const tev_type_definition_t& type, std::uint16_t type_index) {
  Block fields("[]", kFieldsDepth);
  for (const auto* field : std::span(type.fields, type.num_fields))
    fields.element(fieldObject(*field));

  Block object("{}", kTypeDepth);
  object.text("name", type.name);
  object.number("size", type.size);
  object.member("fields", std::move(fields).close());
  object.number("type_index", type_index);
  return std::move(object).close();
}

}  // namespace

std::string versionText(std::uint32_t version) {
  return std::to_string(version & 0xff) + '.' + std::to_string(version >> 8 & 0xff) + '.' +
         std::to_string(version >> 16);
}

std::optional<std::string> jsonText(const tev_schema_t& schema) {
  if (schema.num_types == 0) return std::nullopt;

  Block types("[]", kTypesDepth);
  for (std::uint16_t i = 0; i < schema.num_types; ++i)
    types.element(typeObject(*schema.types[i], i));

  Block object("{}", kSchemaDepth);
  object.text("title", "Telumbra schema");
  object.text("tev_version", versionText(kTevVersion).c_str());
  object.text("provider_name", schema.name);
  object.text("provider_version", versionText(schema.version).c_str());
  object.member("types", std::move(types).close());
  return std::move(object).close();
}

}  // namespace tev::schema

char* tev_schema_json_string(const tev_schema_t* schema) {
  if (!schema) return nullptr;
  return tev::support::guarded<char*>(__func__, nullptr, [schema] {
    const auto text = tev::schema::jsonText(*schema);
    char* const copy = text ? strdup(text->c_str()) : nullptr;
    if (text && !copy) throw std::bad_alloc();
    return copy;
  });
}
