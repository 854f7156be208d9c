#include "host/metrics/listen_address.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <charconv>
#include <string_view>

namespace tev::host {
namespace {

std::optional<std::uint16_t> portFrom(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return port;
}

bool isAddress(int family, const std::string& text) {
  in6_addr binary{};  // has room for both families
  return inet_pton(family, text.c_str(), &binary) == 1;
}

}  // namespace

std::string ListenAddress::text() const {
  return fmt::format(fmt::runtime(isIpv6() ? "[{}]:{}" : "{}:{}"), address, port);
}

std::optional<ListenAddress> listenAddressFrom(const std::string& text) {
  ListenAddress result;
  const std::size_t colon = text.rfind(':');
  const auto port = portFrom(colon == std::string::npos ? text : text.substr(colon + 1));
  if (!port) return std::nullopt;
  result.port = *port;
  const std::string address = colon == std::string::npos ? "" : text.substr(0, colon);
  if (address.empty() || address == "localhost") return result;
  if (address.starts_with('[') && address.ends_with(']')) {
    result.address = address.substr(1, address.size() - 2);
    if (isAddress(AF_INET6, result.address)) return result;
    return std::nullopt;
  }
  result.address = address;
  if (isAddress(AF_INET, address)) return result;
  return std::nullopt;
}

}  // namespace tev::host
