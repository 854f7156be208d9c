#pragma once

#include <optional>
#include <string>

#include "tev/schema.h"

namespace tev::schema {

// The canonical JSON text of a schema, over which its id is computed (docs/formats.md); nothing for
// a schema without types. Throws when memory is short.
std::optional<std::string> jsonText(const tev_schema_t& schema);

// "4.3.2" for a version in three parts.
std::string versionText(std::uint32_t version);

}  // namespace tev::schema
