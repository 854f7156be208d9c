// The interface of the sending end of a message bus.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>

#include "host/bus/message.h"

namespace tev::host {

// What became of a message.
struct DeliveryReport {
  enum class Outcome : std::uint8_t {
    stored,   // the bus keeps it
    refused,  // the bus does not take this message
    unknown,  // it must be sent again
  };
  std::uint64_t number = 0;
  Outcome outcome = Outcome::stored;
  std::string problem;  // of a message that was not stored
};

// All calls come from one thread. Messages with the same key are stored in the order of send().
class Publisher {
 public:
  using Report = std::function<void(const DeliveryReport&)>;

  Publisher() = default;
  virtual ~Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;

  // For people, in the plural: "the Kafka brokers".
  virtual std::string name() const = 0;

  // Hands the message over, which is copied. False when the bus takes nothing now. Does not wait.
  virtual bool send(std::uint64_t number, const OutgoingMessage& message) = 0;

  // Publishes the text of a schema, like a message.
  virtual bool sendSchema(std::uint64_t number, const std::string& id, const std::string& text) = 0;

  // Waits for reports up to `patience`, and passes those that are there.
  virtual void poll(std::chrono::milliseconds patience, const Report& report) = 0;

  // Whether a server of the bus can be reached, as far as is known.
  virtual bool isConnected() const = 0;

  // The client has failed for good, and restart() is needed. Messages without a report must then be
  // sent again.
  virtual bool hasFailed() const = 0;

  // Throws RunError; the old client is then still there.
  virtual void restart() = 0;
};

}  // namespace tev::host
