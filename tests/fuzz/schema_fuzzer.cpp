// Input: a line per type, and in it, between commas, its name and its fields: a name, a type, an
// array length and a description. The texts go into the canonical text that the identity is made
// of.
#include <algorithm>
#include <cstring>
#include <memory>

#include "tests/fuzz/fuzz.h"
#include "tev/schema.h"
#include "tev/serializer.h"

namespace {

using tev::test::check;

using TypeSystem = std::unique_ptr<tev_type_system_t, decltype(&tev_destroy_type_system)>;

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
  const auto before = schema.num_types;
  std::uint8_t index = 0xee;
  const int status =
      tev_schema_add_type(&schema, texts[0].c_str(), fields.data(), fields.size(), &index);
  if (status != TEV_SCHEMA_OK) {
    check(schema.num_types == before, "a type that is refused leaves nothing behind");
    return;
  }
  check(schema.num_types == before + 1 && index == before, "a type is added at the end");
  const auto& type = *schema.types[index];
  std::uint64_t size = 0;
  for (std::uint32_t i = 0; i < type.num_fields; ++i) {
    check(type.fields[i]->offset == size, "fields are back to back");
    size += type.fields[i]->type_size * type.fields[i]->array_length;
  }
  check(type.size == size, "a type is as large as its fields");
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
    const auto index = static_cast<std::uint8_t>(type);
    const auto fit = tev_data_serializer_get_capacity(&serializer, 0, index);
    const int written =
        tev_data_serializer_write_events_ts(&serializer, 0, index, events.data(), 3, 1);
    check(written >= 0 &&
              static_cast<std::uint64_t>(written) == (size ? std::min<std::uint64_t>(fit, 3) : 0),
          "as many as fit are written");
    check(serializer.used == (written ? 16 + static_cast<std::uint64_t>(written) * size : 0),
          "a block is its header and its events");
    check(serializer.used <= serializer.capacity, "never beyond the end");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tev::test::formatMessages();
  const auto lines = tev::test::linesOf(data, size);
  const TypeSystem types(tev_create_type_system(), tev_destroy_type_system);
  const TypeSystem again(tev_create_type_system(), tev_destroy_type_system);
  for (auto* system : {types.get(), again.get()}) {
    tev_schema_t* const schema = tev_type_system_add_schema(
        system, lines[0].c_str(), static_cast<std::uint32_t>(size), nullptr);
    for (const auto& line : lines) addType(*schema, line);
    tev_type_system_update_md5_hashes(system);
  }
  check(std::strcmp(types->schemas[0]->id_string, again->schemas[0]->id_string) == 0,
        "equal schemas have one identity");
  check(tev_type_system_find_schema(types.get(), again->schemas[0]->id_string, nullptr) == 1 ||
            tev_schema_id_is_unset(&types->schemas[0]->id),
        "and are found by it");
  serialize(*types, size);
  return 0;
}
