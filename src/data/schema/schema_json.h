#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "tev/schema.h"

namespace tev::schema {

// The canonical JSON text of a schema (docs/formats.md), from which its id is computed; nothing for
// a schema without types. Throws when memory is short.
std::optional<std::string> jsonText(const tev_schema_t& schema);

// The version of the schema format: of the JSON text, and of the built-in schema. 1.5.0.
inline constexpr std::uint32_t kTevVersion = 1281;

// "4.3.2" for a version in three parts.
std::string versionText(std::uint32_t version);

}  // namespace tev::schema
