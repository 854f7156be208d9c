#include "host/plugin/plugin_source.h"

#include <chrono>
#include <exception>
#include <utility>

#include "host/support/errors.h"
#include "host/support/last_wait.h"
#include "host/support/log.h"
#include "host/support/stop_signal.h"

namespace tev::host {

PluginSource::PluginSource(const PluginOptions& options, std::uint64_t buffer_bytes,
                           SetUpFindings* findings) {
  setUp(options, findings);
  try {
    fetcher_ =
        std::make_unique<Fetcher>(session_->provider(), session_->types(), buffer_bytes, thread_);
  } catch (...) {
    close();
    throw;
  }
}

void PluginSource::setUp(const PluginOptions& options, SetUpFindings* findings) {
  struct SetUp {
    PluginOptions options;
    SetUpFindings findings{};
    std::unique_ptr<Session> session{};
    std::optional<SchemaView> schema{};
  };
  // Shared with the call, which may never return.
  const auto set_up = std::make_shared<SetUp>(SetUp{options});
  const auto call = [set_up, are_wanted = findings != nullptr] {
    auto session =
        std::make_unique<Session>(set_up->options, are_wanted ? &set_up->findings : nullptr);
    set_up->schema = SchemaView::fromTypeSystem(*session->types());
    set_up->session = std::move(session);
  };
  const auto begin = std::chrono::steady_clock::now();
  const auto interrupted = [&] {
    return StopSignal::requests() > 0 &&
           std::chrono::steady_clock::now() - begin >= std::chrono::seconds(1);
  };
  const auto pass_findings = [&] {
    if (findings) *findings = std::move(set_up->findings);
  };
  bool has_returned = false;
  try {
    has_returned = thread_.run(call, interrupted);
  } catch (...) {
    pass_findings();
    throw;
  }
  if (!has_returned) throw RunError("the set-up of the plug-in did not return");
  pass_findings();
  session_ = std::move(set_up->session);
  schema_ = std::move(set_up->schema);
}

PluginSource::~PluginSource() {
  close();
}

bool PluginSource::fetch(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  if (fetcher_->round(take, interrupted)) watch_.batchEnded(session_->provider().deviceReads());
  return true;  // a plug-in delivers until it is stopped
}

bool PluginSource::stop(const std::function<bool()>& interrupted) {
  if (!left_behind_)
    left_behind_ =
        !thread_.run([session = session_.get()] { session->provider().stop(); }, interrupted);
  return !left_behind_;
}

void PluginSource::drain(const BlockConsumer& take, const std::function<bool()>& interrupted) {
  if (!fetcher_->drain(take, interrupted) && !interrupted())
    Log::instance().say("tev-host: the plug-in went on delivering after its stop: cut off");
}

std::string PluginSource::pendingReads() const {
  std::string left_out = watch_.leftOut();
  if (!left_out.empty() || !thread_.isBusy()) return left_out;
  return ReadWatch::passInProgress(session_->provider().deviceReads());
}

bool PluginSource::close() {
  if (session_ && !left_behind_) {
    LastWait wait("the plug-in to release its devices");
    const auto is_cut_short = [&] { return wait.isCutShort(); };
    try {
      left_behind_ = !thread_.wait(is_cut_short);
    } catch (const std::exception&) {  // the error of an earlier call, which has ended
    }
    if (!left_behind_)
      left_behind_ = !thread_.run([session = session_.release()] { delete session; }, is_cut_short);
  }
  if (left_behind_) {  // the call that has not returned uses them
    [[maybe_unused]] const Session* const session = session_.release();
    [[maybe_unused]] const Fetcher* const fetcher = fetcher_.release();
  }
  return !left_behind_;
}

}  // namespace tev::host
