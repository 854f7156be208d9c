#include "host/parquet/column_format.h"

#include <bit>

#include "tev/schema.h"

namespace tev::host {
namespace {

using enum ParquetMeaning;

constexpr std::int32_t kRequired = 0;

// Readers of the old kind of metadata need these numbers. The new kind is written as well, because
// each of the common readers makes mistakes when only one of them is there.
std::int32_t convertedType(const ColumnFormat& format) {
  constexpr std::int32_t kUtf8 = 0;
  constexpr std::int32_t kTimestampMicros = 10;
  constexpr std::int32_t kUint8 = 11;
  constexpr std::int32_t kInt8 = 15;
  const auto step = std::countr_zero(static_cast<unsigned>(format.bits)) - 3;  // 8, 16, 32, 64 bits
  switch (format.meaning) {
    case text:
      return kUtf8;
    case time:
      return kTimestampMicros;
    case unsigned_integer:
      return kUint8 + step;
    case signed_integer:
      return kInt8 + step;
    case number:
      break;
  }
  return -1;
}

void describeMeaning(CompactThrift& thrift, const ColumnFormat& format) {
  constexpr int kLogicalType = 10;
  constexpr int kString = 1;
  constexpr int kTimestamp = 8;
  constexpr int kInteger = 10;
  thrift.structure(kLogicalType, [&] {
    switch (format.meaning) {
      case text:
        thrift.emptyStructure(kString);
        break;
      case time:
        thrift.structure(kTimestamp, [&] {
          thrift.boolean(1, true);                                 // UTC
          thrift.structure(2, [&] { thrift.emptyStructure(2); });  // microseconds
        });
        break;
      default:
        thrift.structure(kInteger, [&] {
          thrift.i8(1, format.bits);
          thrift.boolean(2, format.meaning == signed_integer);
        });
    }
  });
}

}  // namespace

ColumnFormat formatOf(std::uint32_t builtin_id) {
  const auto integer = [&](ParquetMeaning meaning) {
    const auto bits = static_cast<std::int8_t>(8 * tev_builtin_type_size(builtin_id));
    return ColumnFormat{bits == 64 ? ParquetType::int64 : ParquetType::int32, meaning, bits};
  };
  switch (builtin_id) {
    case TEV_TYPE_BOOL:
      return {ParquetType::boolean, number};
    case TEV_TYPE_CHAR:
      return {ParquetType::bytes, text};
    case TEV_TYPE_TIMESTAMP:
      return {ParquetType::int64, time};
    case TEV_TYPE_FLOAT:
      return {ParquetType::single_float, number};
    case TEV_TYPE_DOUBLE:
      return {ParquetType::double_float, number};
    case TEV_TYPE_SHORT:
    case TEV_TYPE_INT:
    case TEV_TYPE_LONG:
    case TEV_TYPE_LONG_LONG:
    case TEV_TYPE_INT8:
    case TEV_TYPE_INT16:
    case TEV_TYPE_INT32:
    case TEV_TYPE_INT64:
      return integer(signed_integer);
    default:
      return integer(unsigned_integer);
  }
}

void describe(CompactThrift& thrift, const std::string& name, const ColumnFormat& format) {
  thrift.i32(1, static_cast<std::int32_t>(format.type));
  thrift.i32(3, kRequired);
  thrift.bytes(4, name);
  if (format.meaning == number) return;
  thrift.i32(6, convertedType(format));
  describeMeaning(thrift, format);
}

}  // namespace tev::host
