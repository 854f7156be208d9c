#include "host/fleet/range_record.h"

#include <fmt/format.h>

#include <array>
#include <iterator>
#include <optional>
#include <span>

#include "host/capture/format.h"
#include "host/support/errors.h"
#include "host/support/number_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::string_view kFormat = "tev-range";
constexpr std::uint64_t kVersion = 1;

std::string hashText(std::string_view text) {
  const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  return fmt::format("{:016x}", hashOf(bytes));
}

// A name of a source as one word: bytes that are not visible ASCII, and '%', become %hh.
std::string asWord(std::string_view name) {
  return percentEncoded(name, [](char c) { return c > ' ' && c < '\x7f' && c != '%'; });
}

[[noreturn]] void refuse() {
  throw RunError("it is damaged");
}

template <class Number>
Number numberOf(std::string_view word, int base = 10) {
  const auto number = parseNumber<Number>(word, base);
  if (!number) refuse();
  return *number;
}

std::string fromWord(std::string_view word) {
  std::string name;
  for (; !word.empty(); word.remove_prefix(1)) {
    if (word.front() != '%') {
      name += word.front();
      continue;
    }
    if (word.size() < 3) refuse();
    name += static_cast<char>(numberOf<std::uint8_t>(word.substr(1, 2), 16));
    word.remove_prefix(2);
  }
  return name;
}

std::string_view cutOff(std::string_view& text, char end) {
  const std::string_view first = text.substr(0, text.find(end));
  text.remove_prefix(std::min(text.size(), first.size() + 1));
  return first;
}

// The single numbers of a record, by their names.
std::vector<std::pair<std::string, std::uint64_t*>> numbersOf(FleetCounts& counts) {
  std::vector<std::pair<std::string, std::uint64_t*>> numbers{
      {"messages", &counts.messages},
      {"events", &counts.events},
      {"bytes", &counts.bytes},
      {"gaps", &counts.gaps},
      {"lost", &counts.lost},
      {"unseen", &counts.unseen},
      {"repeats", &counts.repeats},
      {"repeated", &counts.repeated},
      {"missing-offsets", &counts.missing_offsets}};
  constexpr std::array<const char*, kCauses> kRejected{
      "rejected-format", "rejected-unknown-schema", "rejected-broken-schema",
      "rejected-events", "rejected-spread",         "rejected-clock"};
  for (std::size_t i = 0; i < kCauses; ++i) numbers.emplace_back(kRejected[i], &counts.rejected[i]);
  return numbers;
}

RunId runOf(std::string_view& words) {
  RunId run;
  run.source = fromWord(cutOff(words, ' '));
  run.start = numberOf<std::uint64_t>(cutOff(words, ' '), 16);
  return run;
}

void readLine(std::string_view line, RangeRecord& record, Sequences& sequences) {
  const std::string_view name = cutOff(line, ' ');
  if (name == "topic") {
    record.topic = line;
  } else if (name == "partition") {
    record.partition = numberOf<std::int32_t>(line);
  } else if (name == "start") {
    record.start = numberOf<std::int64_t>(line);
  } else if (name == "end") {
    record.end = numberOf<std::int64_t>(line);
  } else if (name == "file") {
    const std::uint64_t rows = numberOf<std::uint64_t>(cutOff(line, ' '));
    record.files.push_back({std::string(line), rows});
  } else if (name == "loss" || name == "begin") {
    LostEvents& loss = record.losses.emplace_back(LostEvents{runOf(line), 0, 0, name == "begin"});
    loss.first = numberOf<std::uint64_t>(cutOff(line, ' '));
    loss.events = numberOf<std::uint64_t>(line);
  } else if (name == "next") {
    const RunId run = runOf(line);
    sequences.restore(run, numberOf<std::uint64_t>(line));
  } else {
    for (const auto& [known, number] : numbersOf(record.counts))
      if (known == name) *number = numberOf<std::uint64_t>(line);
  }
}

}  // namespace

std::string textOf(const RangeRecord& record, const Sequences& sequences) {
  std::string text =
      fmt::format("{} {}\ntopic {}\npartition {}\nstart {}\nend {}\n", kFormat, kVersion,
                  record.topic, record.partition, record.start, record.end);
  const auto out = std::back_inserter(text);
  FleetCounts counts = record.counts;
  for (const auto& [name, number] : numbersOf(counts))
    fmt::format_to(out, "{} {}\n", name, *number);
  for (const RangeRecord::File& file : record.files)
    fmt::format_to(out, "file {} {}\n", file.rows, file.name);
  for (const LostEvents& loss : record.losses)
    fmt::format_to(out, "{} {} {} {} {}\n", loss.is_begin ? "begin" : "loss",
                   asWord(loss.run.source), runText(loss.run.start), loss.first, loss.events);
  sequences.forEach([&](const RunId& run, std::uint64_t next) {
    fmt::format_to(out, "next {} {} {}\n", asWord(run.source), runText(run.start), next);
  });
  return text + "hash " + hashText(text) + "\n";
}

RangeRecord recordOf(std::string_view text, Sequences& sequences) {
  constexpr std::string_view kHash = "hash ";
  std::string_view first = text.substr(0, text.find('\n'));
  if (cutOff(first, ' ') != kFormat) refuse();
  const auto version = numberOf<std::uint64_t>(first);
  if (version > kVersion)
    throw RunError(fmt::format("it has version {}, and this program knows {}", version, kVersion));
  const std::size_t end = text.rfind(kHash);
  if (end == std::string_view::npos ||
      text.substr(end + kHash.size()) != hashText(text.substr(0, end)) + "\n")
    refuse();
  text = text.substr(0, end);
  cutOff(text, '\n');
  RangeRecord record;
  while (!text.empty()) readLine(cutOff(text, '\n'), record, sequences);
  if (record.start < 0 || record.end < record.start) refuse();
  return record;
}

}  // namespace tev::host
