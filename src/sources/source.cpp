#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "src/sources/identity.h"
#include "src/support/guard.h"
#include "tev/logger.h"
#include "tev/sources.h"

static_assert(offsetof(tev_source_t, id) == 0 && offsetof(tev_source_t, tag) == 64 &&
              sizeof(tev_source_t) == 80);

namespace {

// A record from another module may have no terminator.
template <std::size_t N>
std::string_view view(const char (&text)[N]) {
  return {text, strnlen(text, N)};
}

// Copies to zero-filled characters. The last one stays zero.
template <std::size_t N>
void copyCut(char (&destination)[N], const char* text) {
  if (text) std::memcpy(destination, text, strnlen(text, N - 1));
}

}  // namespace

tev_source_t* tev_create_source(const char* id, const char* tag) {
  auto* source = static_cast<tev_source_t*>(std::calloc(1, sizeof(tev_source_t)));
  if (!source) return nullptr;
  copyCut(source->id, id);
  copyCut(source->tag, tag);
  return source;
}

tev_source_t* tev_create_default_source(const char* tag) {
  return tev::support::guarded<tev_source_t*>(__func__, nullptr, [&]() -> tev_source_t* {
    const auto identity = tev::sources::defaultIdentity();
    return identity ? tev_create_source(identity->c_str(), tag) : nullptr;
  });
}

void tev_destroy_source(tev_source_t* source) {
  std::free(source);
}

tev_source_t* tev_source_copy(tev_source_t* destination, const tev_source_t* source) {
  if (destination && source) *destination = *source;
  return destination;
}

int tev_source_compare(const tev_source_t* a, const tev_source_t* b) {
  if (!a || !b) return (a ? 1 : 0) - (b ? 1 : 0);
  const int by_id = std::strncmp(a->id, b->id, sizeof a->id);
  return by_id != 0 ? by_id : std::strncmp(a->tag, b->tag, sizeof a->tag);
}

char* tev_source_string(const tev_source_t* source) {
  if (!source) return nullptr;
  auto* const text = static_cast<char*>(std::calloc(1, sizeof source->id + 1));
  if (text) view(source->id).copy(text, sizeof source->id);
  return text;
}

bool tev_source_full_string(const tev_source_t* source, char* buffer, std::size_t size) {
  if (!source || !buffer) return false;
  const std::string_view id = view(source->id);
  const std::string_view tag = view(source->tag);
  if (id.size() + tag.size() + 2 > size) {
    TEV_LOG_DEBUG("[source] buffer too small for source %.*s:%.*s (got %zu)",
                  static_cast<int>(id.size()), id.data(), static_cast<int>(tag.size()), tag.data(),
                  size);
    return false;
  }
  char* end = buffer + id.copy(buffer, id.size());
  *end++ = ':';
  end += tag.copy(end, tag.size());
  *end = '\0';
  return true;
}
