#include "host/kafka/connection_problem.h"

#include <fmt/format.h>

#include <cstddef>

#include "host/support/text.h"

namespace tev::host {
namespace {

using Kind = ConnectionProblem::Kind;

enum class Use : std::uint8_t {
  alone,
  with_detail,  // what follows the pattern is added
  at_start,     // a guess, unless a connection has succeeded before
};

// A text of the library, and what it means.
struct Row {
  std::string_view pattern;
  const char* meaning;
  Kind kind;
  Use use = Use::alone;
};

constexpr char kNoBroker[] =
    "what answers there is no Kafka broker, or one that expects TLS (security.protocol)";
constexpr char kNoAnswer[] = "connections are accepted and not answered";
constexpr char kNoTls[] = "what answers there does not use TLS (security.protocol)";
constexpr char kNoCertificate[] =
    "the broker expects a certificate of the client (ssl.certificate.location, ssl.key.location)";
constexpr char kNoSasl[] = "they expect none (security.protocol)";

// The first row whose pattern occurs counts.
constexpr Row kRows[] = {
    {"Name or service not known", "no host has this name", Kind::unreachable},
    {"Failed to resolve", "the host's name cannot be resolved", Kind::unreachable},
    {" failed: Connection refused", "the connection was refused", Kind::unreachable},
    {"Invalid response size", kNoBroker, Kind::unreachable},
    {"Protocol parse failure", kNoBroker, Kind::unreachable},
    {"Disconnected while requesting ApiVersion", kNoBroker, Kind::unreachable, Use::at_start},
    {"ApiVersionRequest failed: Local: Timed out", kNoAnswer, Kind::unreachable},
    {"ApiVersionRequest", kNoBroker, Kind::unreachable},
    {"broker might require SASL",
     "the connection was closed, perhaps because credentials are needed (security.protocol, "
     "sasl.mechanisms)",
     Kind::unreachable, Use::at_start},
    {"not valid in current SASL state", kNoSasl, Kind::credentials},
    {"SASL Handshake not supported", kNoSasl, Kind::credentials},
    {"broker's supported mechanisms: ", "sasl.mechanisms must be one of ", Kind::credentials,
     Use::with_detail},
    {"SASL authentication error: ", "", Kind::credentials, Use::with_detail},
    {"SaslAuthenticateRequest failed: ", "", Kind::credentials, Use::with_detail},
    {"check client ", "the connection was closed during the authentication", Kind::credentials},
    {"certificate verify failed",
     "the broker's certificate is not trusted (ssl.ca.location), or is not for this name",
     Kind::tls},
    {"PLAINTEXT broker listener", kNoTls, Kind::tls},
    {"wrong version number", kNoTls, Kind::tls},
    {"client SSL authentication might be required", kNoCertificate, Kind::tls},
    {"alert bad certificate", kNoCertificate, Kind::tls},
    {"certificate required", kNoCertificate, Kind::tls},
    {"unexpected eof while reading",
     "the TLS connection was closed, perhaps because the broker does not use TLS "
     "(security.protocol)",
     Kind::unreachable, Use::at_start},
    {"unexpected eof while reading", "the connection was closed", Kind::unreachable},
    {"SSL handshake failed: Disconnected", "the connection was closed", Kind::unreachable},
    {"SSL routines::", "", Kind::tls, Use::with_detail},
    {"Connection setup timed out", kNoAnswer, Kind::unreachable},
    {"timed out", "the answer did not come in time", Kind::unreachable},
    {"SSL", "the handshake failed", Kind::tls},
    {"isconnected", "the connection was closed", Kind::unreachable},
    {"SASL ", "", Kind::credentials, Use::with_detail},
    {"brokers are down", "no connection is left", Kind::unreachable},
    {" failed: ", "", Kind::unreachable, Use::with_detail},  // of a system call
};

// "ssl://host:9092/bootstrap: Connect to ... (after 0ms in state CONNECT, 1 identical error(s)
// suppressed)" without what only developers of the library understand.
std::string_view tidied(std::string_view reason) {
  reason = reason.substr(0, reason.rfind(" (after "));
  const std::size_t head = reason.find(": ");
  if (head != std::string_view::npos && reason.substr(0, head).find('/') != std::string_view::npos)
    reason.remove_prefix(head + 2);
  return reason;
}

}  // namespace

std::string ConnectionProblem::sentence(const std::string& brokers) const {
  switch (kind) {
    case Kind::credentials:
      return fmt::format("the Kafka brokers at {} do not accept the credentials: {}", brokers,
                         text);
    case Kind::tls:
      return fmt::format("a TLS connection to the Kafka brokers at {} failed: {}", brokers, text);
    case Kind::unreachable:
      break;
  }
  return fmt::format("no Kafka broker answers at {}: {}", brokers, text);
}

ConnectionProblem connectionProblem(std::string_view reason, bool was_connected) {
  reason = tidied(reason);
  for (const Row& row : kRows) {
    const std::size_t at = reason.find(row.pattern);
    if (at == std::string_view::npos || (was_connected && row.use == Use::at_start)) continue;
    std::string text = row.meaning;
    if (row.use == Use::with_detail) text += asPrintable(reason.substr(at + row.pattern.size()));
    return {row.kind, text};
  }
  return {Kind::unreachable, asPrintable(reason)};
}

std::string setUpProblem(std::string_view reason) {
  if (reason.find("sasl.kerberos.kinit.cmd") != std::string_view::npos)
    return "sasl.mechanisms is GSSAPI, which needs sasl.kerberos.keytab";
  const std::size_t failure = reason.find(" failed: error:");
  if (failure == std::string_view::npos) return asPrintable(reason);
  return asPrintable(reason.substr(0, failure)) + " cannot be used";
}

}  // namespace tev::host
