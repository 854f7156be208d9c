#include "host/plot/page_text.h"

#include <openssl/evp.h>
#include <openssl/sha.h>

#include <array>
#include <cstddef>

namespace tev::host {

std::string asHtml(std::string_view text) {
  std::string html;
  for (const char one : text) {
    switch (one) {
      case '&':
        html += "&amp;";
        break;
      case '<':
        html += "&lt;";
        break;
      case '>':
        html += "&gt;";
        break;
      case '"':
        html += "&quot;";
        break;
      case '\'':
        html += "&#39;";
        break;
      default:
        html += one;
    }
  }
  return html;
}

std::string asScriptJson(std::string json) {
  for (std::size_t at = json.find('<'); at != std::string::npos; at = json.find('<', at))
    json.replace(at, 1, "\\u003c");
  return json;
}

std::string base64(std::span<const std::uint8_t> bytes) {
  std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');  // the function adds a NUL
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                                     static_cast<int>(bytes.size()));
  text.resize(static_cast<std::size_t>(length));
  return text;
}

std::string policyHash(std::string_view text) {
  std::array<std::uint8_t, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(text.data()), text.size(), digest.data());
  return "sha256-" + base64(digest);
}

}  // namespace tev::host
