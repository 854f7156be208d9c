#include "tev/dict.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "src/support/guard.h"
#include "src/support/malloc_ptr.h"
#include "tev/logger.h"

namespace {

using tev::support::MallocPtr;

// The table behind a handle: open addressing, with a power of two of buckets. Another module's
// library may have built it, so its fields are fixed. This library never removes entries, so it
// never creates "deleted" buckets. It skips and reuses those that exist.
struct Table {
  std::uint32_t buckets;
  std::uint32_t size;      // live entries
  std::uint32_t occupied;  // live and deleted buckets
  std::uint32_t bound;     // `occupied` at which the table is rebuilt
  std::uint32_t* states;   // two bits per bucket
  char** keys;
  char** values;
};
static_assert(offsetof(Table, size) == 4 && offsetof(Table, occupied) == 8 &&
              offsetof(Table, bound) == 12 && offsetof(Table, states) == 16 &&
              offsetof(Table, keys) == 24 && offsetof(Table, values) == 32 && sizeof(Table) == 40);

enum : std::uint32_t { kLive = 0, kDeleted = 1, kEmpty = 2, kStateMask = 3 };
constexpr int kAllEmpty = 0xAA;  // a byte of four empty buckets
constexpr std::uint32_t kBucketsPerWord = 16;
constexpr std::uint32_t kFewestBuckets = 4;
constexpr std::uint32_t kMostBuckets = std::uint32_t{1} << 31;
constexpr std::uint32_t kNoBucket = UINT32_MAX;
constexpr double kLoad = 0.77;

std::uint32_t stateOf(const std::uint32_t* states, std::uint32_t bucket) {
  return states[bucket / kBucketsPerWord] >> (bucket % kBucketsPerWord * 2) & kStateMask;
}

void setState(std::uint32_t* states, std::uint32_t bucket, std::uint32_t state) {
  const std::uint32_t shift = bucket % kBucketsPerWord * 2;
  std::uint32_t& word = states[bucket / kBucketsPerWord];
  word = (word & ~(kStateMask << shift)) | state << shift;
}

MallocPtr<std::uint32_t> allEmpty(std::uint32_t buckets) {
  const std::size_t words = (std::size_t{buckets} + kBucketsPerWord - 1) / kBucketsPerWord;
  MallocPtr<std::uint32_t> states(
      static_cast<std::uint32_t*>(std::malloc(words * sizeof(std::uint32_t))));
  if (states) std::memset(states.get(), kAllEmpty, words * sizeof(std::uint32_t));
  return states;
}

// Characters are converted as plain `char`, which is signed or unsigned depending on the machine.
std::uint32_t hashOf(const char* key) {
  std::uint32_t hash = 0;
  for (; *key != '\0'; ++key) hash = hash * 31 + static_cast<std::uint32_t>(*key);
  return hash;
}

// The buckets in which a key may be, in order. Each step is one longer than the previous one. With
// a power of two of buckets, this visits every bucket before it returns to the first.
class Probe {
 public:
  Probe(const char* key, std::uint32_t buckets)
      : mask_(buckets - 1), start_(hashOf(key) & mask_), bucket_(start_) {}

  std::uint32_t bucket() const { return bucket_; }

  // False when the sequence has returned to its start.
  bool next() {
    bucket_ = (bucket_ + ++step_) & mask_;
    return bucket_ != start_;
  }

 private:
  std::uint32_t mask_;
  std::uint32_t start_;
  std::uint32_t bucket_;
  std::uint32_t step_ = 0;
};

std::uint32_t find(const Table& table, const char* key) {
  if (table.buckets == 0) return kNoBucket;
  Probe probe(key, table.buckets);
  do {
    const std::uint32_t state = stateOf(table.states, probe.bucket());
    if (state == kEmpty) return kNoBucket;
    if (state == kLive && std::strcmp(table.keys[probe.bucket()], key) == 0) return probe.bucket();
  } while (probe.next());
  return kNoBucket;
}

// The bucket of `key`, or the bucket where it should be inserted: the last deleted bucket on the
// way, or else the empty bucket at the end. `bound` keeps at least one bucket empty.
std::uint32_t findOrPlace(const Table& table, const char* key) {
  std::uint32_t reusable = kNoBucket;
  Probe probe(key, table.buckets);
  do {
    const std::uint32_t bucket = probe.bucket();
    const std::uint32_t state = stateOf(table.states, bucket);
    if (state == kEmpty) return reusable != kNoBucket ? reusable : bucket;
    if (state == kDeleted) reusable = bucket;
    if (state == kLive && std::strcmp(table.keys[bucket], key) == 0) return bucket;
  } while (probe.next());
  return reusable;
}

bool resizeArray(char**& array, std::uint32_t count) {
  auto* resized = static_cast<char**>(std::realloc(array, std::size_t{count} * sizeof(char*)));
  if (!resized) return false;
  array = resized;
  return true;
}

// Moves every live entry to its place among `buckets`, within the same arrays, starting at bucket
// 0. If the place holds another entry that has not been moved yet, that entry is moved next. This
// changes the states of `table`: moved entries are marked as deleted.
void rehash(Table& table, std::uint32_t* new_states, std::uint32_t buckets) {
  for (std::uint32_t from = 0; from < table.buckets; ++from) {
    if (stateOf(table.states, from) != kLive) continue;
    char* key = table.keys[from];
    char* value = table.values[from];
    setState(table.states, from, kDeleted);
    for (bool in_hand = true; in_hand;) {
      Probe probe(key, buckets);
      while (stateOf(new_states, probe.bucket()) != kEmpty) probe.next();
      const std::uint32_t to = probe.bucket();
      setState(new_states, to, kLive);
      in_hand = to < table.buckets && stateOf(table.states, to) == kLive;
      if (in_hand) {
        setState(table.states, to, kDeleted);
        std::swap(key, table.keys[to]);
        std::swap(value, table.values[to]);
      } else {
        table.keys[to] = key;
        table.values[to] = value;
      }
    }
  }
}

// The number of buckets for a request, 0 when it exceeds 32 bits.
std::uint32_t roundUp(std::uint32_t requested) {
  if (requested > kMostBuckets) return 0;
  std::uint32_t buckets = kFewestBuckets;
  while (buckets < requested) buckets *= 2;
  return buckets;
}

// Rebuilds the table with room for `requested` buckets, which also removes deleted ones. On
// failure, returns false and leaves the table unchanged.
bool resize(Table& table, std::uint32_t requested) {
  const std::uint32_t buckets = roundUp(requested);
  if (buckets == 0) return false;
  const auto bound = static_cast<std::uint32_t>(std::lround(buckets * kLoad));
  if (table.size >= bound) return true;

  MallocPtr<std::uint32_t> states = allEmpty(buckets);
  if (!states) return false;
  if (buckets > table.buckets &&
      (!resizeArray(table.keys, buckets) || !resizeArray(table.values, buckets)))
    return false;
  rehash(table, states.get(), buckets);
  if (buckets < table.buckets) {  // arrays that cannot be shrunk remain large
    resizeArray(table.keys, buckets);
    resizeArray(table.values, buckets);
  }
  std::free(table.states);
  table.states = states.release();
  table.buckets = buckets;
  table.occupied = table.size;
  table.bound = bound;
  return true;
}

bool makeRoom(Table& table) {
  if (table.occupied < table.bound) return true;
  const bool crowded = table.buckets / 2 <= table.size;
  return resize(table, crowded ? table.buckets + 1 : table.buckets - 1);
}

// On success, the table owns both texts.
bool insert(Table& table, MallocPtr<char>& key, MallocPtr<char>& value) {
  if (!makeRoom(table)) return false;
  const std::uint32_t bucket = findOrPlace(table, key.get());
  if (bucket == kNoBucket) return false;
  const std::uint32_t state = stateOf(table.states, bucket);
  if (state == kLive) {
    std::free(std::exchange(table.values[bucket], value.release()));
    return true;
  }
  table.keys[bucket] = key.release();
  table.values[bucket] = value.release();
  setState(table.states, bucket, kLive);
  ++table.size;
  if (state == kEmpty) ++table.occupied;
  return true;
}

bool addCopy(const char* key, const char* value, void* dict) {
  return tev_dict_add(static_cast<tev_custom_options*>(dict), key, value);
}

bool logEntry(const char* key, const char* value, void*) {
  TEV_LOG_DEBUG("key=%s  val=%s", key, value ? value : "(null)");
  return true;
}

}  // namespace

struct tev_custom_options {
  Table* table;
};

tev_custom_options* tev_dict_create(void) {
  MallocPtr<Table> table(static_cast<Table*>(std::calloc(1, sizeof(Table))));
  auto* dict = static_cast<tev_custom_options*>(std::malloc(sizeof(tev_custom_options)));
  if (!table || !dict) {
    std::free(dict);
    return nullptr;
  }
  dict->table = table.release();
  return dict;
}

void tev_dict_delete(tev_custom_options* dict) {
  if (!dict) return;
  if (Table* table = dict->table) {
    for (std::uint32_t bucket = 0; bucket < table->buckets; ++bucket) {
      if (stateOf(table->states, bucket) != kLive) continue;
      std::free(table->keys[bucket]);
      std::free(table->values[bucket]);
    }
    std::free(table->states);
    std::free(table->keys);
    std::free(table->values);
    std::free(table);
  }
  std::free(dict);
}

bool tev_dict_add(tev_custom_options* dict, const char* key, const char* value) {
  if (!dict || !dict->table || !key) return false;
  MallocPtr<char> own_key(strdup(key));
  MallocPtr<char> own_value(value ? strdup(value) : nullptr);
  if (!own_key || (value && !own_value)) return false;
  return insert(*dict->table, own_key, own_value);
}

const char* tev_dict_get(const tev_custom_options* dict, const char* key) {
  if (!dict || !dict->table || !key) return nullptr;
  const std::uint32_t bucket = find(*dict->table, key);
  return bucket == kNoBucket ? nullptr : dict->table->values[bucket];
}

bool tev_dict_enum(const tev_custom_options* dict, tev_dict_visitor_t visitor, void* user) {
  if (!dict || !dict->table || dict->table->size == 0) return true;
  if (!visitor) return false;
  return tev::support::guarded(__func__, false, [&] {
    const Table& table = *dict->table;
    for (std::uint32_t bucket = 0; bucket < table.buckets; ++bucket)
      if (stateOf(table.states, bucket) == kLive &&
          !visitor(table.keys[bucket], table.values[bucket], user))
        return false;
    return true;
  });
}

void tev_dict_dump(const tev_custom_options* dict, const char* name) {
  if (!dict || !tev_log_enabled(TEV_LEVEL_DEBUG)) return;
  TEV_LOG_DEBUG("%s map values: ", name ? name : "(null)");
  tev_dict_enum(dict, logEntry, nullptr);
}

tev_custom_options* tev_dict_dup(const tev_custom_options* dict) {
  if (!dict) return nullptr;
  tev_custom_options* const copy = tev_dict_create();
  if (!copy || tev_dict_enum(dict, addCopy, copy)) return copy;
  tev_dict_delete(copy);
  return nullptr;
}

bool tev_string_to_boolean(const char* text) {
  if (!text) return true;
  return std::strcmp(text, "1") == 0 || std::strcmp(text, "True") == 0 ||
         std::strcmp(text, "true") == 0;
}

const char* boolean_to_string(bool value) {
  return value ? "true" : "false";
}
