#include "host/events/schema_view.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <iterator>
#include <utility>

#include "host/events/declared_schema.h"
#include "host/support/errors.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// Limits the memory for columns, because a few nested types can describe a very large number.
constexpr std::size_t kMaxBytes = std::size_t{1} << 26;

bool fits(const DeclaredField& field, std::uint64_t size) {
  return field.offset <= size &&
         (field.count == 0 || field.element_size <= (size - field.offset) / field.count);
}

// Splits the types of one schema into columns, in the order of their declaration. The names are not
// unique yet.
class Splitter {
 public:
  const std::vector<Column>& split(const DeclaredType& type) {
    type_ = &type;
    std::vector<Column> columns;
    for (const DeclaredField& field : type.fields) addField(columns, field);
    return types_.emplace_back(std::move(columns));
  }

 private:
  [[noreturn]] void refuse(const std::string& field, const char* problem) const {
    throw RunError(asPrintable(fmt::format("the schema is broken: field '{}' of type '{}' {}",
                                           field, type_->name, problem)));
  }

  void addField(std::vector<Column>& columns, const DeclaredField& field) {
    if (!fits(field, type_->size)) refuse(field.name, "reaches beyond the type's end");
    if (field.builtin_id != TEV_TYPE_NONE) return addBuiltIn(columns, field);
    const std::vector<Column>& elements = types_.at(field.composite);
    for (std::uint16_t i = 0; i < field.count && !elements.empty(); ++i) {
      const std::string prefix =
          field.count == 1 ? field.name + "." : fmt::format("{}[{}].", field.name, i);
      for (Column column : elements) {
        column.name.insert(0, prefix);
        column.offset += field.offset + i * field.element_size;
        if (field.key) column.key = field.key;
        add(columns, std::move(column));
      }
    }
  }

  void addBuiltIn(std::vector<Column>& columns, const DeclaredField& field) {
    const std::size_t size = tev_builtin_type_size(field.builtin_id);
    if (size == 0 || size != field.element_size) refuse(field.name, "is of an unknown type");
    add(columns, {field.name, field.description, field.builtin_id, field.counting_mode,
                  field.offset, size, field.count, field.key});
  }

  void add(std::vector<Column>& columns, Column column) {
    used_bytes_ += sizeof column + column.name.size() + column.description.size();
    if (used_bytes_ > kMaxBytes) refuse(column.name, "is one too many");
    columns.push_back(std::move(column));
  }

  const DeclaredType* type_ = nullptr;  // the current one
  std::deque<std::vector<Column>> types_;
  std::size_t used_bytes_ = 0;
};

TypeView viewOf(const DeclaredType& type, std::vector<Column> columns, std::size_t number) {
  TypeView view{type.name, type.size, number, std::move(columns), {}};
  UniqueNames names;
  for (Column& column : view.columns) column.name = names.add(column.name);
  std::ranges::copy_if(view.columns, std::back_inserter(view.keys),
                       [](const Column& column) { return column.key != 0; });
  std::ranges::stable_sort(view.keys, {}, &Column::key);
  return view;
}

}  // namespace

std::string UniqueNames::add(const std::string& name) {
  const auto [taken, is_new] = last_number_.emplace(name, 1);
  if (is_new) return name;
  while (true) {
    std::string numbered = fmt::format("{}_{}", name, ++taken->second);
    if (last_number_.emplace(numbered, 1).second) return numbered;
  }
}

SchemaView SchemaView::fromTypeSystem(const tev_type_system_t& type_system) {
  std::vector<DeclaredSchema> schemas;
  for (std::size_t i = 0; i < type_system.num_schemas; ++i) {
    const tev_schema_t* const schema = type_system.schemas[i];
    schemas.push_back(schema ? declaredSchema(*schema) : DeclaredSchema{});
  }
  return SchemaView(schemas);
}

SchemaView SchemaView::fromJson(std::span<const std::string> texts) {
  std::vector<DeclaredSchema> schemas;
  for (const std::string& text : texts)
    schemas.push_back(text.empty() ? DeclaredSchema{} : declaredSchema(text));
  return SchemaView(schemas);
}

SchemaView::SchemaView(const std::vector<DeclaredSchema>& schemas) {
  for (const DeclaredSchema& schema : schemas) {
    schemas_.push_back({schema.name, schema.id, schema.text});
    first_type_.push_back(types_.size());
    Splitter splitter;
    for (const DeclaredType& type : schema.types)
      types_.push_back(viewOf(type, splitter.split(type), types_.size()));
  }
  first_type_.push_back(types_.size());
}

const TypeView* SchemaView::find(std::uint8_t schema_index, std::uint16_t type_index) const {
  if (schema_index + std::size_t{1} >= first_type_.size()) return nullptr;
  const std::size_t position = first_type_[schema_index] + type_index;
  return position < first_type_[schema_index + std::size_t{1}] ? &types_[position] : nullptr;
}

const SchemaView::Schema& SchemaView::schemaOf(const TypeView& type) const {
  const auto next = std::ranges::upper_bound(first_type_, type.number);
  return schemas_[static_cast<std::size_t>(next - first_type_.begin()) - 1];
}

}  // namespace tev::host
