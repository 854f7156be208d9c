#pragma once

#include <optional>
#include <string_view>

#include "tev/schema.h"

namespace tev::schema {

// The digest of a schema's JSON text; nothing when it cannot be computed.
std::optional<tev_schema_id_t> idOfText(std::string_view text);

// Recomputes a schema's id and writes its id string. A schema without types keeps its id. A schema
// also keeps its id when memory is too short for its text, which is logged.
void updateId(tev_schema_t& schema) noexcept;

}  // namespace tev::schema
