#include "host/kafka/connection_problem.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tev::host {
namespace {

using Kind = ConnectionProblem::Kind;

// The reasons are those of librdkafka 2.0.2 with Kafka 3.9.
TEST(ConnectionProblem, IsSaidInPlainWords) {
  struct Row {
    const char* reason;
    Kind kind;
    const char* words;
  };
  const Row rows[] = {
      {"10.0.0.1:1/bootstrap: Connect to ipv4#10.0.0.1:1 failed: Connection refused (after 0ms in "
       "state CONNECT, 1 identical error(s) suppressed)",
       Kind::unreachable, "no Kafka broker answers at A: the connection was refused"},
      {"10.0.0.1:1/1: Connect to ipv4#10.0.0.1:1 failed: No route to host (after 9ms in state "
       "CONNECT)",
       Kind::unreachable, "no Kafka broker answers at A: No route to host"},
      {"k:9092/bootstrap: Failed to resolve 'k:9092': Name or service not known (after 4ms in "
       "state "
       "CONNECT)",
       Kind::unreachable, "no Kafka broker answers at A: no host has this name"},
      {"k:9092/bootstrap: ApiVersionRequest failed: Local: Timed out: probably due to broker "
       "version "
       "< 0.10 (see api.version.request configuration) (after 10001ms in state APIVERSION_QUERY)",
       Kind::unreachable,
       "no Kafka broker answers at A: connections are accepted and not answered"},
      {"ssl://k:9092/bootstrap: SSL handshake failed: error:0A00010B:SSL routines::wrong version "
       "number (after 13ms in state SSL_HANDSHAKE)",
       Kind::tls,
       "a TLS connection to the Kafka brokers at A failed: what answers there does not use TLS "
       "(security.protocol)"},
      {"ssl://k:9092/bootstrap: SSL handshake failed: ../ssl/statem/statem_clnt.c:1889: "
       "error:0A000102:"
       "SSL routines::unsupported protocol (after 13ms in state SSL_HANDSHAKE)",
       Kind::tls, "a TLS connection to the Kafka brokers at A failed: unsupported protocol"},
      {"sasl_plaintext://k:9092/bootstrap: SASL authentication error: Authentication failed: "
       "Invalid "
       "username or password (after 3ms in state AUTH_REQ)",
       Kind::credentials,
       "the Kafka brokers at A do not accept the credentials: Authentication failed: Invalid "
       "username "
       "or password"},
      {"sasl_plaintext://k:9092/bootstrap: SASL SCRAM-SHA-512 mechanism handshake failed: Broker: "
       "Unsupported SASL mechanism: broker's supported mechanisms: PLAIN (after 3ms in state "
       "AUTH_HANDSHAKE)",
       Kind::credentials,
       "the Kafka brokers at A do not accept the credentials: sasl.mechanisms must be one of "
       "PLAIN"},
      {"something\x1bnew", Kind::unreachable, "no Kafka broker answers at A: something\\x1bnew"},
  };
  for (const Row& row : rows) {
    const ConnectionProblem problem = connectionProblem(row.reason, false);
    EXPECT_EQ(problem.kind, row.kind) << row.reason;
    EXPECT_EQ(problem.sentence("A"), row.words);
  }
  constexpr char kClosed[] =
      "k:9092/1: Disconnected: verify that security.protocol is correctly configured, broker might "
      "require SASL authentication (after 9ms in state UP)";
  EXPECT_THAT(connectionProblem(kClosed, false).text, testing::HasSubstr("security.protocol"));
  EXPECT_EQ(connectionProblem(kClosed, true).text, "the connection was closed");
  EXPECT_EQ(setUpProblem("ssl.ca.location failed: error:05880002:x509 routines::system lib"),
            "ssl.ca.location cannot be used");
}

}  // namespace
}  // namespace tev::host
