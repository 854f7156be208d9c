// JSON values with their line numbers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace simulator {

struct JsonMember;

struct Json {
  enum class Type {
    null,
    boolean,
    unsigned_number,
    negative_number,
    real_number,
    string,
    array,
    object
  };

  Type type = Type::null;
  std::size_t line = 0;
  bool boolean = false;
  std::uint64_t number = 0;  // of unsigned_number
  double real = 0;           // of any number
  std::string text;
  std::vector<Json> items;
  std::vector<JsonMember> members;  // in the order of the text, without duplicate keys
};

struct JsonMember {
  std::string key;
  std::size_t line;
  Json value;
};

// An error and its line.
class JsonError : public std::runtime_error {
 public:
  JsonError(std::size_t line, const std::string& reason)
      : std::runtime_error(reason), line_(line) {}
  std::size_t line() const { return line_; }

 private:
  std::size_t line_;
};

// Reads one JSON value; comments are allowed. Throws JsonError.
Json parseJson(std::string_view text);

}  // namespace simulator
