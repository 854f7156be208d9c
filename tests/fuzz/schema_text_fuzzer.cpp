// Input: the JSON text of a schema.

#include "host/events/schema_view.h"
#include "host/support/errors.h"
#include "tests/fuzz/fuzz.h"

using tev::host::SchemaView;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<std::string> texts{{reinterpret_cast<const char*>(data), size}};
  try {
    const SchemaView view = SchemaView::fromJson(texts);
    for (const auto& type : view.types())
      for (const auto* columns : {&type.columns, &type.keys})
        for (const auto& column : *columns)
          tev::test::check(column.offset <= type.size &&
                               column.count * column.element_size <= type.size - column.offset,
                           "a column lies in its event");
  } catch (const tev::host::RunError&) {
  }
  return 0;
}
