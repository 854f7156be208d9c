#include "host/outputs/csv_text.h"

namespace tev::host {

void appendCsvText(std::string& out, std::string_view text) {
  if (text.find_first_of("\",\r\n") == std::string_view::npos) {
    out += text;
    return;
  }
  out += '"';
  for (const char character : text) {
    if (character == '"') out += '"';
    out += character;
  }
  out += '"';
}

}  // namespace tev::host
