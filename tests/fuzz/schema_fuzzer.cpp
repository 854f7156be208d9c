// Input: a line per type, and in it, between commas, its name and its fields: a name, a type, an
// array length and a description. The texts go into the canonical text that the identity is made
// of.
#include "tests/fuzz/fuzz.h"
#include "tests/support/owned.h"
#include "tev/schema.h"
#include "tev/serializer.h"

namespace {

using tev::test::check;

void addType(tev_schema_t& schema, const std::string& line) {
  const auto pieces = tev::support::split(line, ',');
  const std::vector<std::string> texts(pieces.begin(), pieces.end());
  std::vector<tev_type_field_info_t> fields;
  for (std::size_t i = 1; i + 3 < texts.size(); i += 4)
    fields.push_back({.field_name = texts[i].c_str(),
                      .description = texts[i + 3].empty() ? nullptr : texts[i + 3].c_str(),
                      .type_name = texts[i + 1].c_str(),
                      .counting_mode = static_cast<std::uint32_t>(texts[i + 3].size()),
                      .array_length = static_cast<std::uint16_t>(
                          std::strtoul(texts[i + 2].c_str(), nullptr, 10))});
  tev_schema_add_type(&schema, texts[0].c_str(), fields.data(), fields.size(), nullptr);
}

// In a buffer of any size, nothing is written beyond its end.
void serialize(tev_type_system_t& types, std::size_t capacity) {
  std::vector<std::uint8_t> buffer(capacity);
  const tev_schema_t& schema = *types.schemas[0];
  for (unsigned type = 0; type < schema.num_types; ++type) {
    const auto size = schema.types[type]->size;
    if (size > 4'096) continue;
    const std::vector<std::uint8_t> events(3 * size, 0xa5);
    tev_data_serializer_t serializer{&types, buffer.data(), buffer.size(), 0};
    tev_data_serializer_write_events_ts(&serializer, 0, static_cast<std::uint8_t>(type),
                                        events.data(), 3, 1);
    check(serializer.used <= serializer.capacity, "never beyond the end");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const tev::test::CapturedLog formatted;
  const auto lines = tev::test::linesOf(data, size);
  const tev::test::Owned<tev_type_system_t, tev_destroy_type_system> types(
      tev_create_type_system());
  tev_schema_t* const schema = tev_type_system_add_schema(
      types.get(), lines[0].c_str(), static_cast<std::uint32_t>(size), nullptr);
  for (const auto& line : lines) addType(*schema, line);
  tev_type_system_update_md5_hashes(types.get());
  serialize(*types, size);
  return 0;
}
