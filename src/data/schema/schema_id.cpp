// This file uses a digest function that does not depend on loadable providers. OpenSSL marks such
// functions as deprecated.
#define OPENSSL_SUPPRESS_DEPRECATED

#include "src/data/schema/schema_id.h"

#include <openssl/md5.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "src/data/schema/schema_json.h"
#include "src/support/guard.h"

namespace {

constexpr char kBlobId[] = "BLOB_DATA_SCHEMA";
static_assert(sizeof kBlobId - 1 == TEV_SCHEMA_ID_SIZE);
static_assert(MD5_DIGEST_LENGTH == TEV_SCHEMA_ID_SIZE);

// The digit's value, or -1 for any other character. Does not depend on the locale.
int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

namespace tev::schema {

std::optional<tev_schema_id_t> idOfText(std::string_view text) {
  MD5_CTX md5;
  tev_schema_id_t id;
  if (MD5_Init(&md5) != 1 || MD5_Update(&md5, text.data(), text.size()) != 1 ||
      MD5_Final(id.bytes, &md5) != 1)
    return std::nullopt;
  return id;
}

void updateId(tev_schema_t& schema) noexcept {
  support::guarded("tev_schema_update_id", false, [&] {
    const auto text = jsonText(schema);
    const auto id = text ? idOfText(*text) : std::nullopt;
    if (id) schema.id = *id;
    return true;
  });
  tev_schema_id_to_schema_string(&schema.id, schema.id_string);
}

}  // namespace tev::schema

bool tev_schema_id_is_unset(const tev_schema_id_t* id) {
  return !id || std::ranges::all_of(id->bytes, [](std::uint8_t byte) { return byte == 0; });
}

void tev_copy_schema_id(tev_schema_id_t* destination, const tev_schema_id_t* source) {
  if (destination && source) *destination = *source;
}

void tev_reset_schema_id(tev_schema_id_t* id) {
  if (id) *id = {};
}

int tev_compare_schema_id(const tev_schema_id_t* a, const tev_schema_id_t* b) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  return std::memcmp(a->bytes, b->bytes, TEV_SCHEMA_ID_SIZE);
}

bool tev_schema_id_is_blob(const tev_schema_id_t* id) {
  return id && std::memcmp(id->bytes, kBlobId, TEV_SCHEMA_ID_SIZE) == 0;
}

void tev_schema_id_set_blob(tev_schema_id_t* id) {
  if (id) std::memcpy(id->bytes, kBlobId, TEV_SCHEMA_ID_SIZE);
}

void tev_schema_id_to_schema_string(const tev_schema_id_t* id, char* buffer) {
  constexpr char kDigits[] = "0123456789abcdef";
  if (!id || !buffer) return;
  for (const std::uint8_t byte : id->bytes) {
    *buffer++ = kDigits[byte >> 4];
    *buffer++ = kDigits[byte & 0xf];
  }
  *buffer = '\0';
}

char* tev_schema_id_string(const tev_schema_id_t* id) {
  if (!id) return nullptr;
  auto* text = static_cast<char*>(std::malloc(TEV_SCHEMA_ID_STRING_SIZE));
  if (text) tev_schema_id_to_schema_string(id, text);
  return text;
}

bool tev_schema_from_id_string(const char* text, tev_schema_id_t* id) {
  if (!text || !id) return false;
  tev_schema_id_t parsed;
  for (std::uint8_t& byte : parsed.bytes) {
    const int high = hexValue(*text++);
    const int low = high < 0 ? -1 : hexValue(*text++);  // the text may end after the first digit
    if (low < 0) return false;
    byte = static_cast<std::uint8_t>(high << 4 | low);
  }
  if (*text != '\0') return false;
  *id = parsed;
  return true;
}
