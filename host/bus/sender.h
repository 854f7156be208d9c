// Sends the batches of a store over a bus, on a thread of its own.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>

#include "host/bus/batch_store.h"
#include "host/bus/publisher.h"

namespace tev::host {

struct SenderTotals {
  std::uint64_t messages = 0;        // that the bus keeps
  std::uint64_t events = 0;          // of these
  std::uint64_t bytes = 0;           // of their values
  std::uint64_t refused_events = 0;  // that the bus does not take
  bool is_connected = true;
};

class Sender {
 public:
  // `refused` gets the batches that the bus does not take, on the sender's thread; and in finish()
  // those that the bus has not acknowledged and the store does not keep. That the publisher is not
  // connected has been said.
  Sender(std::unique_ptr<Publisher> publisher, std::unique_ptr<BatchStore> store,
         BatchStore::Dropped refused);

  // Does not wait for the bus.
  ~Sender();
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  // Takes a batch. Does not wait for the bus.
  void push(Batch batch);

  // Waits until the bus has acknowledged everything, at most `patience`, or until `interrupted`
  // returns true, and ends the thread. What is left is given up or remains in the store.
  void finish(std::chrono::milliseconds patience, const std::function<bool()>& interrupted);

  SenderTotals totals() const;

  // BatchStore::waitingBytes().
  std::uint64_t waitingBytes() const;

  // BatchStore::leftText().
  std::string leftText() const;

 private:
  struct SchemaText {
    std::string id;
    std::string text;
  };
  // A schema or a batch that the bus has not acknowledged.
  struct InFlight {
    std::uint64_t number = 0;  // in the publisher
    std::optional<SchemaText> schema;
    StoredBatch stored;
    OutgoingMessage message;
    bool is_sent = false;
  };

  void work();
  void workUntilTheEnd();
  bool isFull() const;
  void fill();
  void addSchemas(const RunSchemas& schemas);
  void sendAll();
  void take(const DeliveryReport& report);
  void refuse(const InFlight& one, const std::string& problem);
  void sayOnce(const std::string& problem);
  void restart();
  void showConnection();

  // Used by the thread alone.
  std::unique_ptr<Publisher> publisher_;
  BatchStore::Dropped refused_;
  MessageWriter writer_;
  std::deque<InFlight> in_flight_;  // in the order of sending
  std::size_t in_flight_bytes_ = 0;
  std::set<std::string> schemas_;  // ids that were published lately or are in flight
  std::chrono::steady_clock::time_point published_ = std::chrono::steady_clock::now();
  std::uint64_t next_number_ = 0;
  bool is_restart_due_ = false;
  std::string said_;    // the last problem
  bool was_connected_;  // at the start, or later
  std::optional<std::chrono::steady_clock::time_point> disconnected_ =
      was_connected_ ? std::nullopt : std::optional(std::chrono::steady_clock::now());

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::unique_ptr<BatchStore> store_;  // these are guarded by the mutex
  SenderTotals totals_;
  bool is_ending_ = false;
  bool has_ended_ = false;

  std::thread thread_;
};

}  // namespace tev::host
