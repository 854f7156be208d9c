// Texts of a page: data never becomes markup or code.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tev::host {

// For the contents of an element.
std::string asHtml(std::string_view text);

// JSON for a script element: neither an end tag nor a comment can be part of it. `json` is valid.
std::string asScriptJson(std::string json);

std::string base64(std::span<const std::uint8_t> bytes);

// "sha256-...", as a security policy names a script or a style.
std::string policyHash(std::string_view text);

}  // namespace tev::host
