#include "host/schema_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

#include "host/errors.h"
#include "host/text.h"

namespace tev::host {
namespace {

// Types nest, so that a few of them can describe more columns than any memory holds.
constexpr std::size_t kMaxFields = 65'536;

bool fits(std::uint64_t offset, std::uint64_t count, std::uint64_t element_size,
          std::uint64_t size) {
  return offset <= size && (count == 0 || element_size <= (size - offset) / count);
}

// Takes one type apart.
class Columns {
 public:
  explicit Columns(TypeView& view) : view_(view) {}

  void add(const tev_type_definition_t& type) { addFields(type, "", 0, 0); }

 private:
  [[noreturn]] void refuse(const std::string& field, const char* problem) const {
    throw RunError(fmt::format("the plug-in's schema is broken: field '{}' of type '{}' {}",
                               asPrintable(field), view_.name, problem));
  }

  void addFields(const tev_type_definition_t& type, const std::string& prefix, std::uint64_t start,
                 std::uint16_t key) {
    for (std::uint32_t i = 0; i < type.num_fields; ++i) {
      const tev_type_field_definition_t* const field = type.fields ? type.fields[i] : nullptr;
      if (!field || !field->field_name || !field->type) refuse(prefix, "is incomplete");
      const std::string name = prefix + asUtf8(field->field_name);
      if (!fits(field->offset, field->array_length, field->type->size, type.size))
        refuse(name, "reaches beyond the type's end");
      addField(*field, name, start + field->offset, key ? key : field->index);
    }
  }

  void addField(const tev_type_field_definition_t& field, const std::string& name,
                std::uint64_t offset, std::uint16_t key) {
    if (++fields_ > kMaxFields) refuse(name, "is one too many");
    if (field.type->builtin_id != TEV_TYPE_NONE) return addColumn(field, name, offset, key);
    for (std::uint16_t i = 0; i < field.array_length; ++i) {
      if (++fields_ > kMaxFields) refuse(name, "is one too many");
      const std::string element = field.array_length == 1 ? name : fmt::format("{}[{}]", name, i);
      addFields(*field.type, element + ".", offset + i * field.type->size, key);
    }
  }

  void addColumn(const tev_type_field_definition_t& field, const std::string& name,
                 std::uint64_t offset, std::uint16_t key) {
    const std::size_t size = tev_builtin_type_size(field.type->builtin_id);
    if (size == 0 || size != field.type->size) refuse(name, "is of an unknown type");
    Column column;
    column.name = names_.add(name);
    column.description = field.description ? asPrintable(field.description) : "";
    column.builtin_id = field.type->builtin_id;
    column.counting_mode = field.counting_mode;
    column.offset = offset;
    column.element_size = size;
    column.count = field.array_length;
    column.key = key;
    view_.columns.push_back(std::move(column));
  }

  TypeView& view_;
  std::size_t fields_ = 0;
  UniqueNames names_;
};

TypeView viewOf(const tev_type_definition_t& type, std::size_t number) {
  TypeView view;
  view.name = type.name ? asUtf8(type.name) : "";
  view.size = type.size;
  view.number = number;
  Columns(view).add(type);

  std::ranges::copy_if(view.columns, std::back_inserter(view.keys),
                       [](const Column& column) { return column.key != 0; });
  std::ranges::stable_sort(view.keys, {}, &Column::key);
  return view;
}

}  // namespace

std::string UniqueNames::add(const std::string& name) {
  std::string unique = name;
  for (int number = 2; !taken_.insert(unique).second; ++number)
    unique = fmt::format("{}_{}", name, number);
  return unique;
}

SchemaView::SchemaView(const tev_type_system_t& type_system) {
  for (std::size_t s = 0; s < type_system.num_schemas; ++s) {
    first_type_.push_back(types_.size());
    const tev_schema_t* const schema = type_system.schemas[s];
    const std::size_t num_types =
        schema ? std::min<std::size_t>(schema->num_types, TEV_MAX_TYPES) : 0;
    for (std::size_t t = 0; t < num_types; ++t) {
      if (!schema->types[t]) throw RunError("the plug-in's schema is broken: a type is missing");
      types_.push_back(viewOf(*schema->types[t], types_.size()));
    }
  }
  first_type_.push_back(types_.size());
}

const TypeView* SchemaView::find(std::uint8_t schema_index, std::uint16_t type_index) const {
  if (schema_index + std::size_t{1} >= first_type_.size()) return nullptr;
  const std::size_t position = first_type_[schema_index] + type_index;
  return position < first_type_[schema_index + std::size_t{1}] ? &types_[position] : nullptr;
}

}  // namespace tev::host
