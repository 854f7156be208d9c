#pragma once

#include "tev/schema.h"

namespace tev::schema {

// Computes a schema's id anew and writes its id string. A schema without types keeps its id, as
// does one whose text cannot be had for lack of memory, which is logged.
void updateId(tev_schema_t& schema) noexcept;

}  // namespace tev::schema
