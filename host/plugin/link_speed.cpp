#include "host/plugin/link_speed.h"

#include <charconv>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>

namespace tev::host {
namespace {

namespace fs = std::filesystem;

// The number at the start of the file's first line, if it is greater than 0 and the rest of the
// line begins with `unit`.
std::optional<double> numberIn(const fs::path& path, std::string_view unit) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line)) return std::nullopt;
  double number = 0;
  const char* const end = line.data() + line.size();
  const auto [rest, error] = std::from_chars(line.data(), end, number);
  const std::string_view after(rest, static_cast<std::size_t>(end - rest));
  if (error != std::errc() || !after.starts_with(unit) || !(number > 0)) return std::nullopt;
  return number;
}

// Whether the name is an entry of a folder. A name from a device may be any text.
bool isEntry(const std::string& name) {
  return !name.empty() && name != "." && name != ".." && name.find('/') == std::string::npos;
}

// For example "400 Gb/sec (4X NDR)".
std::optional<double> speedOfPorts(const fs::path& ports) {
  double sum = 0;
  std::error_code error;
  for (fs::directory_iterator port(ports, error), end; !error && port != end; port.increment(error))
    sum += numberIn(port->path() / "rate", " Gb/sec").value_or(0);
  return sum > 0 ? std::optional(sum) : std::nullopt;
}

}  // namespace

std::optional<double> readLinkSpeed(const std::string& sys, const std::string& rdma_name,
                                    const std::string& interface_name) {
  const fs::path classes = fs::path(sys) / "class";
  if (isEntry(rdma_name))
    if (const auto speed = speedOfPorts(classes / "infiniband" / rdma_name / "ports")) return speed;
  if (!isEntry(interface_name)) return std::nullopt;
  // In Mbit/s; -1 when the interface does not know it.
  const auto mbits = numberIn(classes / "net" / interface_name / "speed", "");
  return mbits ? std::optional(*mbits / 1000) : std::nullopt;
}

}  // namespace tev::host
