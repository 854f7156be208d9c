#include "host/fleet/event_layout.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

#include "host/capture/format.h"
#include "host/events/series.h"
#include "host/events/values.h"
#include "host/support/text.h"

namespace tev::host {
namespace {

constexpr std::size_t kMostColumns = 4096;  // of a file
constexpr std::size_t kLongestKind = 64;    // bytes

std::string folderName(const std::string& kind) {
  std::string name = kind.substr(0, kLongestKind);
  std::ranges::replace_if(
      name, [](char c) { return !isPlainInFileName(c); }, '_');
  return name.empty() ? "other" : name;
}

// Names have their lengths in front, so that different layouts have different texts.
std::string textOf(const TypeView& type) {
  const std::string kind = kindOf(type);
  std::string text = fmt::format("{}:{} {}", kind.size(), kind, type.size);
  for (const Column& column : type.columns)
    fmt::format_to(std::back_inserter(text), "\n{}:{} {} {} {} {} {}", column.name.size(),
                   column.name, column.builtin_id, column.offset, column.element_size, column.count,
                   column.key);
  return text;
}

std::string digestOf(std::string_view text) {
  const std::span bytes(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
  return fmt::format("{:016x}", hashOf(bytes)).substr(0, 8);
}

}  // namespace

std::shared_ptr<const EventLayout> LayoutTable::of(const TypeView& type) {
  std::size_t columns = 0;
  for (const Column& column : type.columns)
    if ((columns += isText(column) ? 1 : column.count) > kMostColumns) return nullptr;
  std::string text = textOf(type);
  auto& known = by_text_[text];
  if (auto layout = known.lock()) return layout;
  const std::string digest = digestOf(text);
  auto layout = std::make_shared<const EventLayout>(
      EventLayout{std::move(text), folderName(kindOf(type)), digest, type.size, type.columns});
  known = layout;
  if (by_text_.size() > purge_at_) {
    std::erase_if(by_text_, [](const auto& entry) { return entry.second.expired(); });
    purge_at_ = 2 * by_text_.size() + 64;
  }
  return layout;
}

}  // namespace tev::host
