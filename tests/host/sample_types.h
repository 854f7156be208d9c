// A type system of a test's own, and events for it.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "tev/schema.h"

namespace tev::test {

class SampleTypes {
 public:
  SampleTypes() { nextSchema("sample"); }
  ~SampleTypes() { tev_destroy_type_system(types_); }
  SampleTypes(const SampleTypes&) = delete;
  SampleTypes& operator=(const SampleTypes&) = delete;

  // Types are added to the newest schema.
  void nextSchema(const char* name) {
    schema_ = tev_type_system_add_schema(types_, name, 1, nullptr);
  }

  void add(const std::string& name, std::initializer_list<tev_type_field_info_t> fields,
           std::initializer_list<const char*> keys = {}) {
    std::uint8_t index = 0;
    if (tev_schema_add_type(schema_, name.c_str(), fields.begin(), fields.size(), &index) != 0 ||
        (keys.size() > 0 &&
         tev_schema_set_field_indexes(schema_, index, keys.begin(), keys.size()) != 0))
      throw std::runtime_error("type not accepted: " + name);
  }

  tev_type_system_t& operator*() const { return *types_; }
  tev_type_definition_t& first() const { return *schema_->types[0]; }

 private:
  tev_type_system_t* types_ = tev_create_type_system();
  tev_schema_t* schema_ = nullptr;
};

// Blocks of packed events, part by part.
class Bytes : public std::vector<std::uint8_t> {
 public:
  // A block's header, as the format's description has it.
  Bytes& block(std::uint64_t timestamp, std::uint8_t schema, std::uint16_t type,
               std::uint8_t events) {
    return text("TEVE", 4).add(timestamp).add(schema).add(type).add(events);
  }
  template <class T>
  Bytes& add(const T& value) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
    insert(end(), bytes, bytes + sizeof value);
    return *this;
  }
  Bytes& u8(std::initializer_list<std::uint8_t> values) {
    insert(end(), values);
    return *this;
  }
  Bytes& text(const std::string& text, std::size_t width) {
    insert(end(), text.begin(), text.end());
    resize(size() + width - text.size());
    return *this;
  }
};

}  // namespace tev::test
