// A type system of a test's own, and events for it.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "tev/schema.h"
#include "tev/serializer.h"

namespace tev::test {

class SampleTypes {
 public:
  SampleTypes() : types_(tev_create_type_system()) {
    schema_ = tev_type_system_add_schema(types_, "sample", 1, nullptr);
  }
  ~SampleTypes() { tev_destroy_type_system(types_); }
  SampleTypes(const SampleTypes&) = delete;
  SampleTypes& operator=(const SampleTypes&) = delete;

  std::uint8_t add(const char* name, std::initializer_list<tev_type_field_info_t> fields,
                   std::initializer_list<const char*> keys = {}) {
    std::uint8_t index = 0;
    if (tev_schema_add_type(schema_, name, fields.begin(), fields.size(), &index) != 0 ||
        (keys.size() > 0 &&
         tev_schema_set_field_indexes(schema_, index, keys.begin(), keys.size()) != 0))
      throw std::runtime_error(std::string("type not accepted: ") + name);
    return index;
  }

  tev_type_system_t& operator*() const { return *types_; }
  tev_schema_t& schema() const { return *schema_; }

 private:
  tev_type_system_t* types_;
  tev_schema_t* schema_;
};

// The bytes of one packed event.
class Bytes {
 public:
  template <class T>
  Bytes& add(const T& value) {
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&value);
    bytes_.insert(bytes_.end(), bytes, bytes + sizeof value);
    return *this;
  }
  Bytes& text(const std::string& text, std::size_t width) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    bytes_.resize(bytes_.size() + width - text.size());
    return *this;
  }
  const std::uint8_t* data() const { return bytes_.data(); }
  const std::vector<std::uint8_t>& all() const { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

// One block, byte by byte as the format's description has it.
inline std::vector<std::uint8_t> block(std::uint64_t timestamp, std::uint8_t schema,
                                       std::uint16_t type, std::uint8_t count,
                                       const std::vector<std::uint8_t>& events) {
  std::vector<std::uint8_t> bytes{'T', 'E', 'V', 'E'};
  for (int i = 0; i < 8; ++i) bytes.push_back(static_cast<std::uint8_t>(timestamp >> 8 * i));
  bytes.push_back(schema);
  bytes.push_back(static_cast<std::uint8_t>(type));
  bytes.push_back(static_cast<std::uint8_t>(type >> 8));
  bytes.push_back(count);
  bytes.insert(bytes.end(), events.begin(), events.end());
  return bytes;
}

}  // namespace tev::test
