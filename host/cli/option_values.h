// Converts the texts of this program's options to values. If a text is not a valid value, throws a
// UsageError, which names the option and the values that are possible.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <utility>

#include "host/capture/capture_options.h"
#include "host/commands/consume.h"
#include "host/metrics/listen_address.h"
#include "host/outputs/formats.h"
#include "host/screen/symbols.h"

namespace tev::host {

const OutputFormat* formatNamed(const char* option, const std::string& text);

// Whether the text is "json"; otherwise it is "text".
bool isJson(const char* option, const std::string& text);

std::chrono::nanoseconds measuringTime(const char* option, const std::string& text);

SymbolSet symbolSet(const char* option, const std::string& text);

// Recorded seconds per second.
double playSpeed(const char* option, const std::string& text);

// In bytes.
std::uint64_t pageSize(const char* option, const std::string& text);

// Also refuses the option when the build lacks what it needs.
ListenAddress metricsAddress(const char* option, const std::string& text);

// A node, as the messages of a bus name it.
std::string sourceName(const char* option, const std::string& text);

// In bytes.
std::uint64_t queueSize(const char* option, const std::string& text);
std::uint64_t spoolSize(const char* option, const std::string& text);

std::string folderPath(const char* option, const std::string& text);

CaptureSync captureSync(const char* option, const std::string& text);

std::string brokerList(const char* option, const std::string& text);
std::string topicName(const char* option, const std::string& text);

// KEY=VALUE. The text is not part of the error, because it may be a secret.
std::pair<std::string, std::string> kafkaSetting(const char* option, const std::string& text);

std::string groupName(const char* option, const std::string& text);
ConsumeFormat consumeFormat(const char* option, const std::string& text);
std::uint64_t rangeSize(const char* option, const std::string& text);
std::uint64_t rangeMessages(const char* option, const std::string& text);
std::uint64_t rangeTime(const char* option, const std::string& text);

// Whether the text is "range"; otherwise it is "none".
bool isForcedOut(const char* option, const std::string& text);

std::uint64_t partitionCount(const char* option, const std::string& text);
std::uint64_t replicaCount(const char* option, const std::string& text);

// With a unit ("24h").
std::chrono::milliseconds retentionTime(const char* option, const std::string& text);

// A size ("100M"), or a time ("1h").
void readRotation(const char* option, const std::string& text, CaptureOptions& capture);

}  // namespace tev::host
