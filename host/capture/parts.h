// The files of a recording that is rotated.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tev::host {

// "run.20260101T000000Z.000001.tevcap" for "run.tevcap": the order of the names is that of the
// files. Without an extension, ".tevcap" is added.
std::string partPath(const std::string& path, std::uint64_t unix_seconds, std::uint64_t number);

// The existing files that have such a name, in their order, also those of earlier runs.
std::vector<std::string> existingParts(const std::string& path);

// Removes the oldest of them until `keep` are left. `current` and files that another run writes are
// not removed. A file that cannot be removed is logged.
void removeOldParts(const std::string& path, std::uint64_t keep, const std::string& current);

// Whether a process writes this capture file.
bool isBeingWritten(const std::string& path);

}  // namespace tev::host
