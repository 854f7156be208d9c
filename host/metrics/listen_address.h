#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tev::host {

// Where an exporter listens.
struct ListenAddress {
  std::string address = "127.0.0.1";  // IPv4 or IPv6, without brackets
  std::uint16_t port = 0;             // 0: any free port

  bool isIpv6() const { return address.find(':') != std::string::npos; }

  // "127.0.0.1:9464" or "[::1]:9464".
  std::string text() const;
};

// From "9464", ":9464" (both on loopback), "192.0.2.1:9464", "localhost:9464" or "[::1]:9464".
// Nothing for any other text.
std::optional<ListenAddress> listenAddressFrom(const std::string& text);

}  // namespace tev::host
