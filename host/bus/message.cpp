#include "host/bus/message.h"

#include <fmt/format.h>
#include <zstd.h>

#include <algorithm>
#include <new>
#include <optional>
#include <utility>

#include "host/support/errors.h"
#include "host/support/number_text.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

// Names of headers.
constexpr std::string_view kVersion = "tev-version";
constexpr std::string_view kSource = "tev-source";
constexpr std::string_view kRun = "tev-run";
constexpr std::string_view kSchemas = "tev-schemas";
constexpr std::string_view kFirst = "tev-first";
constexpr std::string_view kCount = "tev-count";
constexpr std::string_view kCodec = "tev-codec";
constexpr std::string_view kSize = "tev-size";

constexpr std::string_view kCodecNames[] = {"none", "zstd"};  // by BatchCodec

constexpr std::size_t kShown = 40;         // characters of a wrong value
constexpr int kLevel = 1;                  // of zstd
constexpr std::size_t kIdLength = 32;      // hexadecimal digits
constexpr std::size_t kMostSchemas = 256;  // the index in the blocks has 8 bits

template <class... Arguments>
[[noreturn]] void refuse(fmt::format_string<Arguments...> problem, Arguments&&... arguments) {
  throw RunError(fmt::format(problem, std::forward<Arguments>(arguments)...));
}

// Null when the header is missing. Of repeated headers, the last one counts.
const std::string_view* findHeader(const IncomingMessage& message, std::string_view name) {
  const std::string_view* value = nullptr;
  for (const auto& header : message.headers)
    if (header.first == name) value = &header.second;
  return value;
}

std::string_view headerOf(const IncomingMessage& message, std::string_view name) {
  const std::string_view* const value = findHeader(message, name);
  if (!value) refuse("it lacks the header {}", name);
  return *value;
}

std::uint64_t numberOf(const IncomingMessage& message, std::string_view name) {
  const std::string_view text = headerOf(message, name);
  const auto number = parseNumber<std::uint64_t>(text);
  if (!number)
    refuse("its header {} is not a number: {}", name, asPrintable(text.substr(0, kShown)));
  return *number;
}

std::string sourceOf(const IncomingMessage& message) {
  const std::string_view source = headerOf(message, kSource);
  if (source.empty() || source.size() > kLongestSource)
    refuse("its header {} has {} bytes, and 1 to {} are possible", kSource, source.size(),
           kLongestSource);
  if (source != message.key) refuse("its key is not its source");
  return std::string(source);
}

bool isHexadecimal(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

std::vector<std::string> schemaIdsOf(const IncomingMessage& message) {
  std::vector<std::string> ids;
  std::string_view rest = headerOf(message, kSchemas);
  for (;;) {
    const std::string_view id = rest.substr(0, rest.find(','));
    if (id.size() != kIdLength || !std::ranges::all_of(id, isHexadecimal))
      refuse("its header {} has an id that is not {} hexadecimal digits", kSchemas, kIdLength);
    ids.emplace_back(id);
    if (ids.size() > kMostSchemas) refuse("it has more than {} schemas", kMostSchemas);
    if (id.size() == rest.size()) return ids;
    rest.remove_prefix(id.size() + 1);
  }
}

BatchCodec codecOf(const IncomingMessage& message) {
  const std::string_view name = headerOf(message, kCodec);
  const auto* const found = std::ranges::find(kCodecNames, name);
  if (found == std::end(kCodecNames))
    refuse("its codec is not known: {}", asPrintable(name.substr(0, kShown)));
  return static_cast<BatchCodec>(found - kCodecNames);
}

}  // namespace

std::string runText(std::uint64_t start) {
  return fmt::format("{:016x}", start);
}

std::uint64_t runFromText(std::string_view text) {
  const auto start =
      text.size() == kRunDigits ? parseNumber<std::uint64_t>(text, 16) : std::nullopt;
  if (!start)
    refuse("its run is not {} hexadecimal digits: {}", kRunDigits,
           asPrintable(text.substr(0, kShown)));
  return *start;
}

MessageWriter::MessageWriter() : compressor_(ZSTD_createCCtx()) {
  if (!compressor_) throw std::bad_alloc();
}

MessageWriter::~MessageWriter() {
  ZSTD_freeCCtx(compressor_);
}

OutgoingMessage MessageWriter::write(const Batch& batch) {
  OutgoingMessage message;
  message.key = batch.run.source;
  BatchCodec codec = BatchCodec::zstd;
  message.value.resize(ZSTD_compressBound(batch.blocks.size()));
  const std::size_t size =
      ZSTD_compressCCtx(compressor_, message.value.data(), message.value.size(),
                        batch.blocks.data(), batch.blocks.size(), kLevel);
  if (ZSTD_isError(size) != 0 || size >= batch.blocks.size()) {
    codec = BatchCodec::none;
    message.value = batch.blocks;
  } else {
    message.value.resize(size);
  }
  const auto add = [&message](std::string_view name, std::string value) {
    message.headers.emplace_back(name, std::move(value));
  };
  add(kVersion, std::to_string(kMessageVersion));
  add(kSource, batch.run.source);
  add(kRun, runText(batch.run.start));
  add(kSchemas, fmt::format("{}", fmt::join(batch.schemas->ids, ",")));
  add(kFirst, std::to_string(batch.first));
  add(kCount, std::to_string(batch.events));
  add(kCodec, std::string(kCodecNames[static_cast<std::size_t>(codec)]));
  add(kSize, std::to_string(batch.blocks.size()));
  return message;
}

MessageHead readHead(const IncomingMessage& message) {
  const std::uint64_t version = numberOf(message, kVersion);
  if (version != kMessageVersion)
    refuse("it has version {} of the format, and this program knows {}", version, kMessageVersion);
  MessageHead head;
  head.run = {sourceOf(message), runFromText(headerOf(message, kRun))};
  head.schema_ids = schemaIdsOf(message);
  head.first = numberOf(message, kFirst);
  head.events = numberOf(message, kCount);
  head.codec = codecOf(message);
  const std::uint64_t size = numberOf(message, kSize);
  if (size == 0 || size > kLargestBatch)
    refuse("it claims {} bytes of event blocks, and 1 to {} are possible", size, kLargestBatch);
  // Each event has at least one byte.
  if (head.events == 0 || head.events > size) refuse("it claims {} events", head.events);
  if (head.first > UINT64_MAX - head.events) refuse("its event numbers are too large");
  head.size = static_cast<std::size_t>(size);
  return head;
}

BlockReader::BlockReader() : decompressor_(ZSTD_createDCtx()) {
  if (!decompressor_) throw std::bad_alloc();
}

BlockReader::~BlockReader() {
  ZSTD_freeDCtx(decompressor_);
}

void BlockReader::read(std::span<const std::uint8_t> value, BatchCodec codec, std::size_t size,
                       std::vector<std::uint8_t>& blocks) {
  if (codec == BatchCodec::none) {
    if (value.size() != size) refuse("its value has a wrong length");
    blocks.assign(value.begin(), value.end());
    return;
  }
  // A value that is shorter than this cannot be unpacked to so many bytes, so no memory is taken.
  constexpr std::uint64_t kLargestRatio = 64 << 10;
  if (size > kLargestRatio * value.size()) refuse("its value cannot be unpacked");
  blocks.resize(size);
  const std::size_t unpacked =
      ZSTD_decompressDCtx(decompressor_, blocks.data(), blocks.size(), value.data(), value.size());
  if (ZSTD_isError(unpacked) != 0 || unpacked != size) refuse("its value cannot be unpacked");
}

}  // namespace tev::host
