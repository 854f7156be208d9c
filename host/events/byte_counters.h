// Counters of bytes: how fast they may go at an interval, and how long an interval may be.
#pragma once

#include <chrono>

#include "host/events/schema_view.h"

namespace tev::host {

using Seconds = std::chrono::duration<double>;

// Whether the values are numbers of bytes, not of packets or bits. The first such unit in the
// description decides. Without one, the last one in the name does ("rx_bytes", "RxOctets").
// A rate ("bytes per second") is not a number of bytes.
bool countsBytes(const Column& column);

// The same for packets and frames.
bool countsPackets(const Column& column);

// The longest interval in which a counter of this many bits moves by at most a quarter of its range
// at this rate. Longer intervals are not safe, because the rate varies and samples can be missing.
// The rate must be greater than 0.
Seconds longestSafeInterval(unsigned bits, double per_second);

// The highest rate at which the interval is safe. The interval must be greater than 0.
double highestSafeRate(unsigned bits, Seconds interval);

double bytesPerSecond(double gbits_per_second);
double gbitsPerSecond(double bytes_per_second);

// The bits of the column's elements.
unsigned bitsOf(const Column& column);

// Whether the interval is safe for the column on a link of this speed. Always true for a column
// that does not count bytes, because the speed of the link does not limit it.
bool followsByteCounters(Seconds interval, double link_gbits_per_second, const Column& column);

}  // namespace tev::host
