// The numbers of the Parquet format, and how built-in types are stored in it.
#pragma once

#include <cstdint>
#include <string>

#include "host/parquet/compact_thrift.h"

namespace tev::host {

enum class ParquetType : std::int8_t {
  boolean = 0,
  int32 = 1,
  int64 = 2,
  single_float = 4,
  double_float = 5,
  bytes = 6,
};

enum class ParquetEncoding : std::int8_t { plain = 0, runs = 3, dictionary = 8 };
enum class ParquetPage : std::int8_t { data = 0, dictionary = 2 };

inline constexpr std::int32_t kParquetZstd = 6;  // the codec of all pages

// What the bytes of a value mean.
enum class ParquetMeaning : std::int8_t { number, text, time, signed_integer, unsigned_integer };

struct ColumnFormat {
  ParquetType type;
  ParquetMeaning meaning;
  std::int8_t bits = 0;  // of an integer
};

// Of a value of a built-in type.
ColumnFormat formatOf(std::uint32_t builtin_id);

// Writes the fields of the column's element of the schema.
void describe(CompactThrift& thrift, const std::string& name, const ColumnFormat& format);

}  // namespace tev::host
