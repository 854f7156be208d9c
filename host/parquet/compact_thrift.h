// Writes structures in the compact protocol of Thrift, as the metadata of Parquet files needs them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tev::host {

// The fields of a structure are written in ascending order of their numbers.
class CompactThrift {
 public:
  CompactThrift() { open(); }

  void boolean(int field, bool value) { begin(field, value ? kTrue : kFalse); }
  void i8(int field, std::int8_t value) { begin(field, kI8), out_ += static_cast<char>(value); }
  void i32(int field, std::int32_t value) { begin(field, kI32), zigzag(value); }
  void i64(int field, std::int64_t value) { begin(field, kI64), zigzag(value); }
  void bytes(int field, std::string_view value) { begin(field, kBytes), append(value); }

  // A structure as a field. `fill` writes its fields.
  template <class Fill>
  void structure(int field, Fill&& fill) {
    begin(field, kStruct);
    element(fill);
  }
  void emptyStructure(int field) {
    structure(field, [] {});
  }

  // A list of `size` structures. `fill` writes the fields of one of them, by its index.
  template <class Fill>
  void structures(int field, std::size_t size, Fill&& fill) {
    beginList(field, size, kStruct);
    for (std::size_t i = 0; i < size; ++i) element([&] { fill(i); });
  }

  void i32s(int field, const std::vector<std::int32_t>& values) {
    beginList(field, values.size(), kI32);
    for (const std::int32_t value : values) zigzag(value);
  }

  void texts(int field, const std::vector<std::string>& values) {
    beginList(field, values.size(), kBytes);
    for (const std::string& value : values) append(value);
  }

  // Ends the outermost structure. Nothing can be added afterwards.
  std::string finish() {
    close();
    return std::move(out_);
  }

 private:
  enum Type : std::uint8_t {
    kTrue = 1,
    kFalse = 2,
    kI8 = 3,
    kI32 = 5,
    kI64 = 6,
    kBytes = 8,
    kList = 9,
    kStruct = 12,
  };

  void begin(int field, Type type) {
    // Longer steps have another form, which these structures do not need.
    out_ += static_cast<char>((field - last_field_.back()) << 4 | type);
    last_field_.back() = field;
  }

  void beginList(int field, std::size_t size, Type type) {
    constexpr std::size_t kShortList = 15;
    begin(field, kList);
    if (size < kShortList) {
      out_ += static_cast<char>(size << 4 | type);
    } else {
      out_ += static_cast<char>(0xF0 | type);
      varint(size);
    }
  }

  template <class Fill>
  void element(Fill&& fill) {
    open();
    fill();
    close();
  }

  void open() { last_field_.push_back(0); }
  void close() { out_ += '\0', last_field_.pop_back(); }

  void zigzag(std::int64_t value) {
    varint(static_cast<std::uint64_t>(value) << 1 ^ static_cast<std::uint64_t>(value >> 63));
  }

  void varint(std::uint64_t value) {
    for (; value > 0x7F; value >>= 7) out_ += static_cast<char>(value | 0x80);
    out_ += static_cast<char>(value);
  }

  void append(std::string_view value) { varint(value.size()), out_ += value; }

  std::string out_;
  std::vector<int> last_field_;  // of each open structure
};

}  // namespace tev::host
