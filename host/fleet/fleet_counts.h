// What became of the messages.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/support/errors.h"

namespace tev::host {

// Why a message was skipped.
enum class Cause : std::uint8_t {
  format,          // it is not a batch
  unknown_schema,  // nobody has published its schema
  broken_schema,   // its schema's text is broken, or does not have its id
  events,          // its event blocks are broken, or are not those that its headers claim
  spread,          // its events belong to too many files
  clock,           // its events are in the future
};
constexpr std::size_t kCauses = 6;

// Of one line: "unknown schema".
const char* nameOf(Cause cause);

// The message cannot be used. The text is the reason.
class Rejected : public RunError {
 public:
  Rejected(Cause cause, const std::string& reason) : RunError(reason), cause_(cause) {}
  Cause cause() const { return cause_; }

  // Whether the numbers of its events are those of the header: they are skipped, and not missing.
  bool areEventsKnown() const { return cause_ != Cause::format && cause_ != Cause::events; }

 private:
  Cause cause_;
};

struct FleetCounts {
  std::uint64_t messages = 0;  // all of them
  std::uint64_t events = 0;    // that were taken
  std::uint64_t bytes = 0;     // of the event blocks of messages that were taken
  std::uint64_t gaps = 0;
  std::uint64_t lost = 0;             // events in the gaps
  std::uint64_t unseen = 0;           // events of runs before their first message
  std::uint64_t repeats = 0;          // messages that were dropped
  std::uint64_t repeated = 0;         // events that were dropped, also of other messages
  std::uint64_t missing_offsets = 0;  // that the bus did not have any more
  std::array<std::uint64_t, kCauses> rejected{};  // messages, by Cause

  std::uint64_t allRejected() const;
  FleetCounts& operator+=(const FleetCounts& other);
  bool operator==(const FleetCounts&) const = default;
};

// "2 gaps with 5 events, 3 repeats": what is not as it should be. Empty: nothing.
std::string faultsText(const FleetCounts& counts);

}  // namespace tev::host
