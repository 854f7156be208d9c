// The only function of the telemetry library that a device SDK does not have. It reports the calls
// of the library's user so far.
#pragma once

#include <cstdint>

extern "C" {

// Writes one "name value" line for each of lists_created, lists_destroyed, opens, closes, creates,
// destroys, starts, stops, misuses, and for each SDK function that has been called. At most `size`
// bytes with the NUL are written; the result is the length of the whole text, as snprintf's is.
__attribute__((visibility("default"))) std::uint32_t vuna_simulator_report(char* text,
                                                                           std::uint32_t size);
}
