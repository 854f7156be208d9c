#include "provider/event_types.h"

#include <algorithm>
#include <cstring>

#include "provider/layout_signature.h"
#include "tev/logger.h"

namespace tev::events::multipath {
namespace {

constexpr const char* kDeviceKey[] = {"device_name"};
constexpr const char* kPlaneKey[] = {"device_name", "plane"};

bool isSame(const char* a, const char* b) {
  return a == b || (a && b && std::strcmp(a, b) == 0);
}

using Fields = std::span<const tev_type_field_info_t>;

bool isSame(Fields a, Fields b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const auto& x, const auto& y) {
    return isSame(x.field_name, y.field_name) && isSame(x.description, y.description) &&
           isSame(x.type_name, y.type_name) && x.counting_mode == y.counting_mode &&
           x.array_length == y.array_length;
  });
}

}  // namespace

const EventKind kDeviceEvents{"device", "multipath_event_device", kDeviceKey};
const EventKind kPlaneEvents{"plane", "multipath_event_plane", kPlaneKey};

void EventTypes::add(std::unique_ptr<tev_type_field_info_t[]> fields, std::size_t count) {
  // Different layouts can have the same signature, because the texts of the fields are joined. The
  // later layout then uses the next number.
  for (auto signature = layoutSignature({fields.get(), count});; ++signature) {
    const auto [found, is_new] = layouts_.try_emplace(signature);
    auto& layout = found->second;
    if (!is_new && !isSame({layout.fields.get(), layout.count}, {fields.get(), count})) continue;
    if (is_new) layout = {.fields = std::move(fields), .count = count};
    signatures_.push_back(signature);
    return;
  }
}

bool EventTypes::registerAll(tev_schema_t& schema) {
  std::size_t number = 0;
  for (auto& [signature, layout] : layouts_) {
    std::string name = kind_.type_name;
    if (layouts_.size() > 1) name.append("_").append(std::to_string(number++));
    if (!registerOne(schema, name, layout)) return false;
  }
  return true;
}

bool EventTypes::registerOne(tev_schema_t& schema, const std::string& name, Layout& layout) {
  std::uint8_t type_id = 0;
  if (tev_schema_add_type(&schema, name.c_str(), layout.fields.get(), layout.count, &type_id)) {
    TEV_LOG_ERROR("[multipath] Failed to add %s type %s to schema", kind_.word, name.c_str());
    return false;
  }
  if (tev_schema_set_field_indexes(&schema, type_id, kind_.key_fields.data(),
                                   kind_.key_fields.size()))
    TEV_LOG_WARNING("[multipath] Could not set field indexes for type %s", name.c_str());
  layout.type_id = type_id;
  TEV_LOG_INFO("[multipath] Registered %s event type '%s' with %zu fields", kind_.word,
               name.c_str(), layout.count);
  return true;
}

std::vector<std::uint8_t> EventTypes::idsByDevice() const {
  std::vector<std::uint8_t> ids;
  ids.reserve(signatures_.size());
  for (const auto signature : signatures_) ids.push_back(layouts_.at(signature).type_id);
  return ids;
}

void EventTypes::releaseFields() {
  for (auto& [signature, layout] : layouts_) layout.fields.reset();
}

}  // namespace tev::events::multipath
