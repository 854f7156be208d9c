#include <cctype>
#include <cstring>

#include "tev/serializer.h"

namespace {

constexpr char kPrefix[] = TEV_MAGIC_PREFIX;
constexpr std::size_t kPrefixLength = sizeof kPrefix - 1;
static_assert(kPrefixLength + 1 == TEV_MAGIC_SIZE);

}  // namespace

void tev_magic_value_fill(char* magic, char kind) {
  if (!magic) return;
  std::memcpy(magic, kPrefix, kPrefixLength);
  magic[kPrefixLength] = kind;
}

void tev_magic_value_fill_lower(char* magic, char kind) {
  if (!magic) return;
  tev_magic_value_fill(magic, kind);
  for (std::size_t i = 0; i < TEV_MAGIC_SIZE; ++i)
    magic[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(magic[i])));
}

void tev_magic_value_copy(char* destination, const char* source) {
  if (destination && source) std::memcpy(destination, source, TEV_MAGIC_SIZE);
}

bool tev_magic_value_match_type(const char* magic, char kind) {
  return magic && std::memcmp(magic, kPrefix, kPrefixLength) == 0 && magic[kPrefixLength] == kind;
}

bool tev_magic_value_match(const char* a, const char* b) {
  return a && b && std::strncmp(a, b, kPrefixLength) == 0 && a[kPrefixLength] == b[kPrefixLength];
}
