// One JSON object of a scenario file, read key by key. Every error states the place and the reason.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulator/json_lines.h"

namespace simulator {

// A value and its place in the file's structure, such as "devices[0].slots[1]".
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

  // The value of a key. The key is recorded as known.
  std::optional<Located> find(const char* key);
  Located require(const char* key);

  // Like find, but with a default for a missing key.
  std::uint32_t number32(const char* key, std::uint32_t missing);
  std::uint64_t number(const char* key, std::uint64_t missing, std::uint64_t min,
                       std::uint64_t max);
  bool boolean(const char* key, bool missing);
  std::string bytes(const char* key);

  const Located& object() const { return object_; }

  // Refuses the first key that is not known.
  void refuseUnknown() const;

 private:
  Located object_;
  std::vector<bool> known_;
};

}  // namespace simulator
