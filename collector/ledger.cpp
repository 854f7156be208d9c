#include "collector/ledger.h"

#include <algorithm>
#include <cstring>

namespace tev::events::multipath {

void DeviceLedger::noteFailure(std::uint64_t at_usec, std::string_view text,
                               std::string_view what) {
  Failure failure{.at_usec = at_usec};
  const std::size_t room = sizeof failure.text - 1;
  const std::size_t length = what.copy(failure.text, room);
  text.copy(failure.text + length, room - length);
  last_failure_.publish(failure);
}

tev_multipath_ledger_t record(const DeviceLedger& device, const PassLedger& passes,
                              std::uint64_t buffer_bytes) {
  tev_multipath_ledger_t record{};
  record.delivered = device.delivered.get();
  record.buffer_full = device.buffer_full.get();
  record.read_refused = device.read_refused.get();
  record.nothing_filled = device.nothing_filled.get();
  record.missed_by_overrun = passes.missed_by_overrun.get();
  record.missed_by_late_wakeup = passes.missed_by_late_wakeup.get();
  record.taken = record.delivered + record.buffer_full;
  record.due = record.taken + record.read_refused + record.nothing_filled +
               record.missed_by_overrun + record.missed_by_late_wakeup;
  record.discarded = device.discarded.get();
  record.short_reads = device.short_reads.get();
  record.overrun_passes = passes.overrun_passes.get();
  record.late_wakeups = passes.late_wakeups.get();
  record.last_good_usec = device.last_good_usec.get();
  record.buffer_bytes = buffer_bytes;
  record.most_used_bytes = device.most_used_bytes.get();
  record.left_out = device.left_out.get();

  const Failure failure = device.lastFailure();
  record.last_failure_usec = failure.at_usec;
  std::memcpy(record.last_failure, failure.text, sizeof record.last_failure);
  return record;
}

void add(tev_multipath_ledger_t& total, const tev_multipath_ledger_t& device) {
  using Ledger = tev_multipath_ledger_t;
  for (const auto sum : {&Ledger::due, &Ledger::taken, &Ledger::delivered, &Ledger::buffer_full,
                         &Ledger::read_refused, &Ledger::nothing_filled, &Ledger::missed_by_overrun,
                         &Ledger::missed_by_late_wakeup, &Ledger::discarded, &Ledger::short_reads,
                         &Ledger::buffer_bytes, &Ledger::most_used_bytes, &Ledger::left_out})
    total.*sum += device.*sum;
  // The devices of one sampling thread share their passes.
  for (const auto most : {&Ledger::overrun_passes, &Ledger::late_wakeups, &Ledger::last_good_usec})
    total.*most = std::max(total.*most, device.*most);
  if (device.last_failure_usec > total.last_failure_usec) {
    total.last_failure_usec = device.last_failure_usec;
    std::memcpy(total.last_failure, device.last_failure, sizeof total.last_failure);
  }
}

}  // namespace tev::events::multipath
