#include "tev/field_set.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "src/support/set_file.h"
#include "src/support/text.h"
#include "tev/filters.h"
#include "tev/logger.h"

namespace tev {
namespace {

using support::trimLine;

constexpr const char* kFallback = "default";  // the section for types that do not match any other

bool isHeader(std::string_view line) {
  return line.starts_with('[') && line.ends_with(']');
}

bool typeMatches(std::string_view pattern, std::string_view type_name) {
  if (!pattern.ends_with('*')) return type_name == pattern;
  pattern.remove_suffix(1);
  return type_name.starts_with(pattern);
}

bool fieldMatches(const std::string& pattern, const std::string& field_name) {
  tev_filter_token_t token{};
  pattern.copy(token, sizeof token - 1);
  return tev_filter_match_single_token(field_name.c_str(), token);
}

bool accepts(const std::vector<std::string>& field_patterns, const std::string& field_name) {
  if (field_patterns.empty()) return true;
  return std::any_of(field_patterns.begin(), field_patterns.end(),
                     [&](const auto& pattern) { return fieldMatches(pattern, field_name); });
}

}  // namespace

bool ProviderFieldSet::initializeFromFile(const char* filename) {
  if (!filename) {
    TEV_LOG_ERROR("ProviderFieldSet: missing filename parameter");
    return false;
  }
  return loadFromFile(filename);
}

bool ProviderFieldSet::loadFromFile(const std::string& filename) {
  return support::loadSetFile(filename, {.content = "field set", .extension = "fset"}, name_,
                              [&](const support::Lines& lines) { return load(lines); });
}

bool ProviderFieldSet::initializeFromLines(const std::vector<std::string>& lines) {
  return loadFromLines(lines);
}

bool ProviderFieldSet::loadFromLines(const std::vector<std::string>& lines) {
  return load(lines);
}

template <class Texts>
bool ProviderFieldSet::load(const Texts& lines) {
  ProviderFieldSet loaded;                 // replaces this set after everything has succeeded
  std::shared_ptr<FieldPatterns> section;  // the list of the current section
  for (const std::string_view raw_line : lines) {
    const auto line = trimLine(raw_line);
    if (line.empty() || line.starts_with('#')) continue;
    if (isHeader(line))
      section = loaded.openSection(line.substr(1, line.size() - 2));
    else if (section)
      section->emplace_back(line);
  }
  std::swap(*this, loaded);
  return isInitialized();
}

// The list of a new section; its type patterns lose their earlier lists. Null when the section does
// not name any.
std::shared_ptr<ProviderFieldSet::FieldPatterns> ProviderFieldSet::openSection(
    std::string_view type_patterns) {
  std::shared_ptr<FieldPatterns> section;
  for (const auto piece : support::split(type_patterns, ',')) {
    const auto pattern = trimLine(piece);
    if (pattern.empty()) continue;
    if (!section) section = std::make_shared<FieldPatterns>();
    type_patterns_[std::string(pattern)] = section;
  }
  return section;
}

bool ProviderFieldSet::isTypeOfInterest(const std::string& type_name) const {
  return std::any_of(type_patterns_.begin(), type_patterns_.end(),
                     [&](const auto& entry) { return typeMatches(entry.first, type_name); });
}

// The lists that decide on the type's fields.
std::vector<const ProviderFieldSet::FieldPatterns*> ProviderFieldSet::listsFor(
    const std::string& type_name) const {
  std::vector<const FieldPatterns*> lists;
  if (!type_name.empty())
    for (const auto& [pattern, field_patterns] : type_patterns_)
      if (typeMatches(pattern, type_name)) lists.push_back(field_patterns.get());
  if (!lists.empty()) return lists;
  const auto fallback = type_patterns_.find(kFallback);
  if (fallback != type_patterns_.end()) lists.push_back(fallback->second.get());
  return lists;
}

bool ProviderFieldSet::shouldIncludeField(const std::string& type_name,
                                          const std::string& field_name) const {
  const auto lists = listsFor(type_name);
  return std::any_of(lists.begin(), lists.end(),
                     [&](const auto* list) { return accepts(*list, field_name); });
}

std::vector<std::string> ProviderFieldSet::getFieldPatterns(const std::string& type_name) const {
  std::vector<std::string> patterns;
  for (const auto* list : listsFor(type_name)) {
    if (list->empty()) return {};
    patterns.insert(patterns.end(), list->begin(), list->end());
  }
  return patterns;
}

std::vector<std::string> ProviderFieldSet::getTypePatterns() const {
  std::vector<std::string> patterns;
  patterns.reserve(type_patterns_.size());
  for (const auto& entry : type_patterns_) patterns.push_back(entry.first);
  return patterns;
}

const std::string& ProviderFieldSet::getName() const {
  return name_;
}

bool ProviderFieldSet::isInitialized() const {
  return !type_patterns_.empty();
}

void ProviderFieldSet::printConfiguration() const {
  TEV_LOG_INFO("[%s] '%s' configuration:", __func__, name_.c_str());
  TEV_LOG_INFO("[%s]  Initialized: %s", __func__, isInitialized() ? "yes" : "no");
  for (const auto& [type_pattern, field_patterns] : type_patterns_) {
    TEV_LOG_INFO("[%s]  Type pattern: [%s]", __func__, type_pattern.c_str());
    for (const auto& pattern : *field_patterns)
      TEV_LOG_INFO("[%s]    %s", __func__, pattern.c_str());
  }
}

}  // namespace tev
