#include "host/bus/sender.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

#include "host/support/errors.h"
#include "host/support/host_threads.h"
#include "host/support/log.h"

namespace tev::host {
namespace {

using Clock = std::chrono::steady_clock;

// What is handed over cannot be given up in favour of newer batches, so it is little.
constexpr std::size_t kMostInFlight = 64;                         // messages
constexpr std::size_t kMostBytesInFlight = std::size_t{4} << 20;  // bytes of their values
constexpr std::chrono::milliseconds kPatience{20};                // for reports
constexpr std::chrono::milliseconds kRestartPause{1000};
constexpr std::chrono::hours kSchemaLife{1};  // then they are published again: the topic may be new

}  // namespace

Sender::Sender(std::unique_ptr<Publisher> publisher, std::unique_ptr<BatchStore> store,
               BatchStore::Dropped refused)
    : publisher_(std::move(publisher)),
      refused_(std::move(refused)),
      was_connected_(publisher_->isConnected()),
      store_(std::move(store)),
      totals_{.is_connected = was_connected_},
      thread_([this] { work(); }) {}

Sender::~Sender() {
  finish(std::chrono::milliseconds::zero(), [] { return true; });
}

void Sender::push(Batch batch) {
  const std::lock_guard lock(mutex_);
  store_->push(std::move(batch));
}

void Sender::finish(std::chrono::milliseconds patience, const std::function<bool()>& interrupted) {
  if (!thread_.joinable()) return;
  const auto end = Clock::now() + patience;
  {
    std::unique_lock lock(mutex_);
    while (!store_->isEmpty() && !has_ended_ && Clock::now() < end) {
      lock.unlock();
      const bool is_interrupted = interrupted();
      lock.lock();
      if (is_interrupted) break;
      changed_.wait_for(lock, kPatience);
    }
    is_ending_ = true;
  }
  thread_.join();
  const std::lock_guard lock(mutex_);
  store_->close();
  for (const InFlight& one : in_flight_)
    if (!one.schema && !store_->accountsFor(one.stored.number)) refused_(one.stored.batch);
}

SenderTotals Sender::totals() const {
  const std::lock_guard lock(mutex_);
  return totals_;
}

std::uint64_t Sender::waitingBytes() const {
  const std::lock_guard lock(mutex_);
  return store_->waitingBytes();
}

std::string Sender::leftText() const {
  const std::lock_guard lock(mutex_);
  return store_->leftText();
}

void Sender::work() {
  const HostThread noted;
  try {
    workUntilTheEnd();
  } catch (const std::exception& error) {  // sampling goes on without the bus
    Log::instance().say(
        fmt::format("tev-host: sending to {} has ended: {}", publisher_->name(), error.what()));
  }
  const std::lock_guard lock(mutex_);
  has_ended_ = true;
  changed_.notify_all();
}

void Sender::workUntilTheEnd() {
  for (;;) {
    {
      const std::lock_guard lock(mutex_);
      if (is_ending_) return;
    }
    fill();
    sendAll();
    publisher_->poll(kPatience, [this](const DeliveryReport& report) { take(report); });
    if (publisher_->hasFailed() || is_restart_due_) restart();
    showConnection();
  }
}

bool Sender::isFull() const {
  return in_flight_.size() >= kMostInFlight || in_flight_bytes_ >= kMostBytesInFlight;
}

void Sender::fill() {
  while (!isFull()) {
    std::optional<StoredBatch> stored;
    {
      const std::lock_guard lock(mutex_);
      stored = store_->next();
    }
    if (!stored) return;
    addSchemas(*stored->batch.schemas);
    InFlight one;
    one.number = next_number_++;
    one.message = writer_.write(stored->batch);
    one.stored = std::move(*stored);
    in_flight_bytes_ += one.message.value.size();
    in_flight_.push_back(std::move(one));
  }
}

// A schema goes before the first batch that needs it.
void Sender::addSchemas(const RunSchemas& schemas) {
  if (Clock::now() - published_ >= kSchemaLife) {
    published_ = Clock::now();
    schemas_.clear();
  }
  for (std::size_t i = 0; i < schemas.ids.size(); ++i) {
    if (schemas.texts[i].empty() || !schemas_.insert(schemas.ids[i]).second) continue;
    InFlight one;
    one.number = next_number_++;
    one.schema = SchemaText{schemas.ids[i], schemas.texts[i]};
    in_flight_.push_back(std::move(one));
  }
}

// A batch waits until the bus has acknowledged the schemas before it.
void Sender::sendAll() {
  bool waits_for_schema = false;
  for (InFlight& one : in_flight_) {
    if (!one.schema && waits_for_schema) return;
    waits_for_schema = waits_for_schema || one.schema;
    if (one.is_sent) continue;
    one.is_sent = one.schema ? publisher_->sendSchema(one.number, one.schema->id, one.schema->text)
                             : publisher_->send(one.number, one.message);
    if (!one.is_sent) return;
  }
}

void Sender::take(const DeliveryReport& report) {
  const auto found = std::ranges::find(in_flight_, report.number, &InFlight::number);
  if (found == in_flight_.end()) return;
  if (report.outcome == DeliveryReport::Outcome::unknown) {
    // What was handed over after it must not overtake it.
    is_restart_due_ = true;
    sayOnce(fmt::format("{} did not store a message, which is sent again: {}", publisher_->name(),
                        report.problem));
    return;
  }
  const InFlight one = std::move(*found);
  in_flight_.erase(found);
  in_flight_bytes_ -= one.message.value.size();
  if (report.outcome == DeliveryReport::Outcome::refused) refuse(one, report.problem);
  if (one.schema) return;
  const std::lock_guard lock(mutex_);
  store_->done(one.stored.number);
  if (report.outcome == DeliveryReport::Outcome::refused) {
    totals_.refused_events += one.stored.batch.events;
  } else {
    ++totals_.messages;
    totals_.events += one.stored.batch.events;
    totals_.bytes += one.message.value.size();
  }
  changed_.notify_all();
}

void Sender::refuse(const InFlight& one, const std::string& problem) {
  sayOnce(fmt::format("{} do not take {}: {}", publisher_->name(),
                      one.schema ? "the schema" : "a batch of events", problem));
  if (one.schema) schemas_.erase(one.schema->id);
  if (!one.schema) refused_(one.stored.batch);
}

// The same problem again and again is one line.
void Sender::sayOnce(const std::string& problem) {
  if (std::exchange(said_, problem) != problem) Log::instance().say("tev-host: " + problem);
}

// What has no report is sent again, in its order.
void Sender::restart() {
  if (is_restart_due_) std::this_thread::sleep_for(kRestartPause);
  is_restart_due_ = true;
  try {
    publisher_->restart();
  } catch (const std::exception& error) {  // a file of settings may be missing for a while
    sayOnce(error.what());
    return;
  }
  is_restart_due_ = false;
  for (InFlight& one : in_flight_) one.is_sent = false;
  schemas_.clear();
}

void Sender::showConnection() {
  const bool is_connected = publisher_->isConnected();
  if (is_connected == !disconnected_) return;
  if (is_connected) {
    const std::chrono::duration<double> lasted = Clock::now() - *disconnected_;
    Log::instance().say(fmt::format("tev-host: {} answer{}, after {:.1f} s", publisher_->name(),
                                    was_connected_ ? " again" : "", lasted.count()));
    disconnected_.reset();
    was_connected_ = true;
  } else {
    Log::instance().say(fmt::format("tev-host: {} cannot be reached", publisher_->name()));
    disconnected_ = Clock::now();
  }
  const std::lock_guard lock(mutex_);
  totals_.is_connected = is_connected;
}

}  // namespace tev::host
