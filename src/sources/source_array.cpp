#include <malloc.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "tev/logger.h"
#include "tev/sources.h"

static_assert(offsetof(tev_source_array_t, count) == 0 &&
              offsetof(tev_source_array_t, sources) == 8 && sizeof(tev_source_array_t) == 16);
static_assert(TEV_MAX_SOURCES < TEV_SOURCE_NOT_FOUND);

namespace {

std::span<tev_source_t* const> sourcesOf(const tev_source_array_t& array) {
  return {array.sources, array.count};
}

// The record does not store its capacity. The capacity is the count, rounded up to a power of two.
// An array from another module may have less.
bool hasRoomForOneMore(const tev_source_array_t& array) {
  const std::size_t needed = (std::size_t{array.count} + 1) * sizeof(tev_source_t*);
  return array.sources && !std::has_single_bit(array.count) &&
         malloc_usable_size(array.sources) >= needed;
}

bool makeRoomForOneMore(tev_source_array_t& array) {
  const std::size_t capacity = std::bit_ceil(std::size_t{array.count} + 1);
  auto* const grown =
      static_cast<tev_source_t**>(std::realloc(array.sources, capacity * sizeof(tev_source_t*)));
  if (grown) array.sources = grown;
  return grown != nullptr;
}

}  // namespace

tev_source_array_t* tev_create_source_array(void) {
  auto* array = static_cast<tev_source_array_t*>(std::malloc(sizeof(tev_source_array_t)));
  if (array) *array = {};
  return array;
}

tev_source_array_t* tev_create_default_source_array(const char* tag) {
  tev_source_array_t* const array = tev_create_source_array();
  if (!array) return nullptr;
  tev_source_t* const source = tev_create_default_source(tag);
  if (tev_source_array_append(array, source)) return array;
  tev_destroy_source_array(array);
  tev_destroy_source(source);
  return nullptr;
}

void tev_destroy_source_array(tev_source_array_t* array) {
  if (!array) return;
  for (tev_source_t* source : sourcesOf(*array)) tev_destroy_source(source);
  std::free(array->sources);
  std::free(array);
}

bool tev_source_array_append(tev_source_array_t* array, tev_source_t* source) {
  if (!array || !source || array->count >= TEV_MAX_SOURCES) return false;
  if (!hasRoomForOneMore(*array) && !makeRoomForOneMore(*array)) return false;
  array->sources[array->count++] = source;
  return true;
}

std::uint16_t tev_source_array_find_source(const tev_source_array_t* array,
                                           const tev_source_t* source) {
  if (!array || !source) return TEV_SOURCE_NOT_FOUND;
  std::uint16_t index = 0;
  for (const tev_source_t* entry :
       sourcesOf(*array).first(std::min<std::size_t>(array->count, TEV_MAX_SOURCES))) {
    if (entry == source) return index;
    ++index;
  }
  return TEV_SOURCE_NOT_FOUND;
}

std::size_t tev_source_array_log(const tev_source_array_t* array, const char* name) {
  if (!array) return 0;
  std::size_t index = 0;
  for (const tev_source_t* source : sourcesOf(*array)) {
    if (source)
      TEV_LOG_DEBUG("%s[%zu] = %.*s", name ? name : "(null)", index, TEV_SOURCE_ID_SIZE,
                    source->id);
    ++index;
  }
  return array->count;
}
