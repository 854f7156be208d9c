#include "host/outputs/parquet_fields.h"

#include <fmt/format.h>

#include "host/events/values.h"

namespace tev::host {

std::vector<RowField> parquetFields(const std::vector<Column>& columns, std::size_t offset,
                                    std::initializer_list<const char*> taken) {
  std::vector<RowField> fields;
  UniqueNames names;
  for (const char* const name : taken) names.add(name);
  for (const Column& column : columns) {
    const std::size_t size = isText(column) ? column.count : column.element_size;
    const std::size_t elements = isText(column) ? 1 : column.count;
    for (std::size_t i = 0; i < elements; ++i) {
      const std::string name = elements == 1 ? column.name : fmt::format("{}[{}]", column.name, i);
      fields.push_back(
          {names.add(name), column.builtin_id, offset + column.offset + i * size, size});
    }
  }
  return fields;
}

}  // namespace tev::host
