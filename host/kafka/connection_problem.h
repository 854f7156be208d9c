// The reasons why the Kafka brokers cannot be reached, in words for users.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tev::host {

struct ConnectionProblem {
  enum class Kind : std::uint8_t {
    unreachable,  // may pass
    credentials,  // the brokers do not accept them
    tls,
  };

  // A sentence about these brokers.
  std::string sentence(const std::string& brokers) const;

  Kind kind = Kind::unreachable;
  std::string text;  // the reason
};

// `reason` is the text with which the client library reports an error. When a broker has answered
// before, the settings of the connection are right.
ConnectionProblem connectionProblem(std::string_view reason, bool was_connected);

// Why the library does not take the settings together; `reason` is its text.
std::string setUpProblem(std::string_view reason);

}  // namespace tev::host
