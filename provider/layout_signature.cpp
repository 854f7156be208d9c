#include "provider/layout_signature.h"

#include <string>
#include <string_view>

namespace tev::events::multipath {
namespace {

class Fnv1a {
 public:
  void add(std::string_view text) {
    for (const char character : text) {
      hash_ ^= static_cast<unsigned char>(character);
      hash_ *= 1'099'511'628'211u;
    }
  }
  std::uint64_t value() const { return hash_; }

 private:
  std::uint64_t hash_ = 14'695'981'039'346'656'037u;
};

}  // namespace

std::uint64_t layoutSignature(std::span<const tev_type_field_info_t> fields) {
  Fnv1a hash;
  for (const auto& field : fields) {
    for (const char* text : {field.field_name, field.description, field.type_name}) {
      if (!text) return hash.value();
      hash.add(text);
    }
    hash.add(std::to_string(static_cast<std::int32_t>(field.counting_mode)));
    hash.add(std::to_string(field.array_length));
  }
  return hash.value();
}

}  // namespace tev::events::multipath
