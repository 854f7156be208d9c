#include "host/commands/info.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <map>
#include <system_error>

#include "host/capture/capture_source.h"
#include "host/commands/text_table.h"
#include "host/events/decoder.h"
#include "host/events/series.h"
#include "host/figures/health.h"
#include "host/outputs/output_file.h"
#include "host/support/duration_text.h"
#include "host/support/errors.h"
#include "host/support/short_number.h"
#include "host/support/stderr_text.h"
#include "host/support/stop_signal.h"
#include "host/support/text.h"
#include "host/support/time_text.h"
#include "host/timing/distribution.h"

namespace tev::host {
namespace {

struct TypeCount {
  std::uint64_t events = 0;
  std::uint64_t bytes = 0;
};

// What the events of the files say.
struct Contents {
  std::uint64_t block_bytes = 0;
  std::uint64_t first_usec = UINT64_MAX;
  std::uint64_t last_usec = 0;
  std::map<const TypeView*, TypeCount> types;
  Distribution intervals;       // microseconds, of all series
  std::uint64_t backwards = 0;  // time stamps before the previous one of the series
};

std::string bytesText(double bytes) {
  return shortNumber(bytes) + "B";
}

class Reading {
 public:
  explicit Reading(const SchemaView& schema) : schema_(schema) {}

  void take(Blocks blocks) {
    contents.block_bytes += blocks.size();
    decodeBlocks(schema_, blocks, [this](const Event& event) { take(event); });
  }

  Contents contents;

 private:
  void take(const Event& event) {
    const std::uint64_t now = event.timestamp_usec;
    contents.first_usec = std::min(contents.first_usec, now);
    contents.last_usec = std::max(contents.last_usec, now);
    TypeCount& type = contents.types[event.type];
    ++type.events;
    type.bytes += event.type->size;
    const Series& series = series_.of(event);
    if (series.number >= last_usec_.size()) last_usec_.resize(series.number + 1);
    std::uint64_t& last = last_usec_[series.number];
    if (last != 0 && now >= last) contents.intervals.add(now - last);
    if (now < last) ++contents.backwards;
    last = now;
  }

  const SchemaView& schema_;
  SeriesTable series_;
  std::vector<std::uint64_t> last_usec_;  // by the series' number
};

std::string row(const char* name, const std::string& text) {
  return fmt::format("  {:<12}{}\n", name, text);
}

std::string headText(const CaptureHead& head) {
  std::string text = asPrintable(head.source) + "\n";
  text +=
      row("written by", fmt::format("{} on {}", asPrintable(head.writer), asPrintable(head.host)));
  if (!head.plugin.empty())
    text += row("plug-in", asPrintable(head.plugin_version + " of " + head.plugin));
  for (const std::string& id : head.schema_ids) text += row("schema", asPrintable(id));
  for (const auto& [key, value] : head.options)
    text += row("option", asPrintable(key + "=" + value));
  text += row("started", timeText(head.start.real / 1000));
  text += row("interval", head.interval_usec == 0
                              ? "not known"
                              : durationText(std::chrono::microseconds(head.interval_usec)));
  if (head.clear_on_read) text += row("reads", "clear the counters");
  return text;
}

std::string contentsText(const Contents& contents, const CaptureSource& source) {
  std::string text;
  if (contents.last_usec > 0) {
    text +=
        row("events",
            fmt::format(
                "{} to {}, {}", timeText(contents.first_usec), timeText(contents.last_usec),
                durationText(std::chrono::microseconds(contents.last_usec - contents.first_usec))));
  }
  const auto size = static_cast<double>(source.size());
  text += row("size", fmt::format("{} for {} of event blocks, ratio {:.1f}", bytesText(size),
                                  bytesText(static_cast<double>(contents.block_bytes)),
                                  static_cast<double>(contents.block_bytes) / size));
  const Distribution& intervals = contents.intervals;
  if (intervals.count() > 0)
    text += row("regularity",
                fmt::format("intervals p50 {} us, p99 {} us, p99.9 {} us, longest {} us{}",
                            intervals.quantile(0.5), intervals.quantile(0.99),
                            intervals.quantile(0.999), intervals.max(),
                            contents.backwards == 0
                                ? ""
                                : fmt::format(", {} time stamps go back", contents.backwards)));
  std::vector<std::vector<std::string>> rows{{"type", "events", "bytes"}};
  for (const TypeView& type : source.schema().types())
    if (const auto found = contents.types.find(&type); found != contents.types.end())
      rows.push_back({asPrintable(type.name), std::to_string(found->second.events),
                      std::to_string(found->second.bytes)});
  return text + textTable("lrr", rows);
}

// How the file ended, and what the clock did.
std::string stateText(const CaptureSource& source) {
  const bool is_finished = source.files().front().is_finished;
  std::string text =
      row("state",
          is_finished ? "complete" : "not finished: the recording goes on, or was ended by force");
  for (const ClockStep& step : source.clockSteps())
    text +=
        row("clock", fmt::format("stepped by {:+.3f} s until {}",
                                 static_cast<double>(step.by_usec) / 1e6, timeText(step.at_usec)));
  return text;
}

std::string missingText(const CaptureSource& source) {
  const auto counts = source.counts();
  if (!counts) return "  the source did not count missing samples\n";
  std::string text;
  for (const DeviceCounts& one : *counts)
    if (const std::string missing = describeMissing(one); !missing.empty())
      text += fmt::format("  {}: {}\n", asPrintable(one.device), asPrintable(missing));
  return text.empty() ? "  no sample is missing\n" : text;
}

// Returns whether the whole file is sound.
bool showFile(const std::string& path) {
  const auto interrupted = [] { return StopSignal::requests() > 0; };
  CaptureSource source(std::vector<std::string>(1, path));
  Reading reading(source.schema());
  while (!interrupted() &&
         source.fetch([&](Blocks blocks) { reading.take(blocks); }, interrupted)) {
  }
  if (interrupted()) throw RunError("interrupted in " + asPrintable(path));
  const std::string damage = damageText(source);
  const std::string text =
      fmt::format("{}: {}{}{}{}{}", asPrintable(path), headText(source.head()), stateText(source),
                  contentsText(reading.contents, source), missingText(source), damage);
  if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() || std::fflush(stdout) != 0) {
    if (errno == EPIPE) throw ClosedPipe();
    throw RunError(
        fmt::format("cannot write standard output: {}", std::generic_category().message(errno)));
  }
  return damage.empty();
}

}  // namespace

int showInfo(const std::vector<std::string>& files) {
  const StopSignal stop_signal;
  bool is_sound = true;
  for (const std::string& path : files) {
    try {
      is_sound &= showFile(path);
    } catch (const ClosedPipe&) {
      return kExitFine;
    } catch (const RunError& error) {  // the others may be sound
      if (StopSignal::requests() > 0 || files.size() == 1) throw;
      showOnStderr(fmt::format("tev-host: {}\n", error.what()));
      is_sound = false;
    }
  }
  return is_sound ? kExitFine : kExitFailed;
}

}  // namespace tev::host
