#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "simulator/common_library.h"
#include "simulator/scenario.h"

namespace simulator {
namespace {

class File {
 public:
  // Non-blocking, so that a pipe instead of a file cannot block the caller.
  explicit File(const std::string& path)
      : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  File(File&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  File& operator=(File&&) = delete;
  ~File() {
    if (descriptor_ >= 0) close(descriptor_);
  }

  // The unsigned number that the file currently contains.
  std::optional<std::uint64_t> number() const {
    char text[32];
    const ssize_t length = pread(descriptor_, text, sizeof text, 0);
    if (length <= 0) return std::nullopt;
    std::uint64_t value = 0;
    const char* const end = text + length;
    const auto [stop, error] = std::from_chars(text, end, value);
    if (error != std::errc() || (stop != end && *stop != '\n')) return std::nullopt;
    return value;
  }

 private:
  int descriptor_;
};

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text.append(part);
  return text;
}

// The entries of a directory in alphabetical order, without hidden ones.
std::vector<std::string> entries(const std::string& folder) {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(opendir(folder.c_str()), closedir);
  if (!directory) return names;
  while (const dirent* entry = readdir(directory.get()))
    if (entry->d_name[0] != '.') names.emplace_back(entry->d_name);
  std::sort(names.begin(), names.end());
  return names;
}

// "rx_crc_errors" is described as "received crc errors".
std::string description(const std::string& statistic) {
  std::string text = statistic;
  std::replace(text.begin(), text.end(), '_', ' ');
  if (text.rfind("rx ", 0) == 0) return "received " + text.substr(3);
  if (text.rfind("tx ", 0) == 0) return "transmitted " + text.substr(3);
  return text;
}

class NetdevSource : public CounterSource {
 public:
  explicit NetdevSource(const std::vector<std::string>& paths) {
    files_.reserve(paths.size());
    for (const std::string& path : paths) files_.emplace_back(path);
  }

  vuna_status read(const Moment& /*moment*/, std::uint32_t* values) override {
    for (const File& file : files_) {
      const std::optional<std::uint64_t> value = file.number();
      if (!value) return kDeviceGone;
      *values++ = static_cast<std::uint32_t>(*value);
    }
    return kVunaSuccess;
  }

 private:
  std::vector<File> files_;
};

std::optional<Device> interfaceDevice(const std::string& class_net, const std::string& name) {
  const std::string statistics = joined({class_net, "/", name, "/statistics/"});
  Slot slot;
  std::vector<std::string> paths;
  for (const std::string& statistic : entries(statistics)) {
    const std::string path = joined({statistics, statistic});
    if (paths.size() == kMaxCounters || !File(path).number()) continue;
    slot.counters.push_back({joined({statistic, ", ", description(statistic)}), true});
    paths.push_back(path);
  }
  if (paths.empty()) return std::nullopt;
  slot.info = "kernel statistics of " + name;
  deriveNumbers(slot);
  slot.make_source = [paths = std::move(paths)] { return std::make_unique<NetdevSource>(paths); };

  Device device;
  device.ibdev_name = name;
  device.slots.push_back(std::move(slot));
  deriveMaxima(device);
  return device;
}

}  // namespace

std::vector<Device> netdevDevices(const std::string& class_net) {
  std::vector<Device> devices;
  for (const std::string& name : entries(class_net)) {
    if (devices.size() == kMaxDevices) break;
    if (auto device = interfaceDevice(class_net, name)) devices.push_back(std::move(*device));
  }
  return devices;
}

}  // namespace simulator
