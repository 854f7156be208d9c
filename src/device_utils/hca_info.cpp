#include <dirent.h>

#include <algorithm>
#include <cstdlib>
#include <span>
#include <string>
#include <string_view>

#include "src/device_utils/port_identifiers.h"
#include "tev/logger.h"

static_assert(sizeof(tev_hca_info_t) == TEV_HCA_NAME_LENGTH + 1);

namespace tev::common::detail {
namespace {

int isVisible(const dirent* entry) {
  return entry->d_name[0] != '.';
}

// The visible entries of a directory, sorted. Does not use glob(), because glob() frees paths twice
// when memory is short.
class Listing {
 public:
  explicit Listing(const std::string& folder)
      : count_(scandir(folder.c_str(), &entries_, isVisible, alphasort)) {}
  ~Listing() {
    for (dirent* const entry : entries()) std::free(entry);
    std::free(entries_);
  }
  Listing(const Listing&) = delete;
  Listing& operator=(const Listing&) = delete;

  std::span<dirent* const> entries() const {
    return {entries_, count_ > 0 ? static_cast<std::size_t>(count_) : 0};
  }

 private:
  dirent** entries_ = nullptr;
  int count_;
};

void copyName(tev_hca_info_t& info, std::string_view name) {
  constexpr std::size_t kLength = TEV_HCA_NAME_LENGTH;
  if (name.size() > kLength)
    TEV_LOG_WARNING("HCA info: name %s does not fit %zu buffer", name.data(), kLength);
  name.copy(info.name, kLength);
}

}  // namespace

bool fillHcaInfoArray(const HostRoots& roots, tev_hca_info_t* array, std::size_t size) {
  if (!array || size == 0) return false;
  const std::span<tev_hca_info_t> infos(array, size);
  std::ranges::fill(infos, tev_hca_info_t{});

  const Listing adapters(roots.sys + "/class/infiniband");
  const auto entries = adapters.entries();
  if (entries.empty()) return false;
  if (entries.size() > size)
    TEV_LOG_WARNING("HCA info: only the first %zu of %zu adapters are looked at", size,
                    entries.size());
  const std::size_t count = std::min(size, entries.size());
  for (std::size_t i = 0; i < count; ++i) copyName(infos[i], entries[i]->d_name);
  return true;
}

}  // namespace tev::common::detail
