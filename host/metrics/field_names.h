// Names and help texts of the metrics of fields.
#pragma once

#include <string>

#include "host/events/projection.h"

namespace tev::host {

struct FieldNames {
  std::string word;       // "plane_rx"
  std::string owner;      // "'rx' of each plane"
  std::string head;       // "rx of each plane", for help texts
  std::string described;  // the same with its own name, if that is another one, and its description
};

FieldNames namesOf(const TypeView& type, const Column& column);

}  // namespace tev::host
