// One JSON object of a scenario file, read key by key. Every complaint says where and why.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/json_lines.h"

namespace simulator {

// A value together with its place in the file's structure, as in "devices[0].slots[1]".
struct Located {
  const Json* json;
  std::string place;

  [[noreturn]] void refuse(const std::string& reason) const;

  std::uint64_t number(std::uint64_t min, std::uint64_t max) const;
  std::uint32_t number32() const;
  double real(double min, double max) const;
  bool boolean() const;
  const std::string& string() const;  // without a NUL
  // Bytes for the SDK's callers: a string, or an array of numbers from 0 to 255.
  std::string bytes() const;
  std::vector<Located> items(std::size_t max) const;
};

class Fields {
 public:
  explicit Fields(Located object);

  // The value of a key, which from then on counts as known.
  std::optional<Located> find(const char* key);
  Located require(const char* key);

  // As find, with the value when the key is missing.
  std::uint32_t number32(const char* key, std::uint32_t missing);
  std::uint64_t number(const char* key, std::uint64_t missing, std::uint64_t min,
                       std::uint64_t max);
  bool boolean(const char* key, bool missing);
  std::string bytes(const char* key);

  const Located& object() const { return object_; }

  // Refuses the first key that nobody asked for.
  void refuseUnknown() const;

 private:
  Located object_;
  std::vector<bool> known_;
};

}  // namespace simulator
