#include "tev/counter_set.h"

#include <algorithm>
#include <utility>

#include "src/support/set_file.h"
#include "tev/logger.h"

namespace tev {
namespace {

using support::trimLine;

// The function name in the messages about single lines.
constexpr const char* kLoadFromLines = "loadFromLines";

bool matches(std::string_view pattern, std::string_view name) {
  const bool at_start = pattern.starts_with('^');
  if (at_start) pattern.remove_prefix(1);
  const bool at_end = pattern.ends_with('$');
  if (at_end) pattern.remove_suffix(1);
  if (at_start == at_end) return name == pattern;
  return at_start ? name.starts_with(pattern) : name.ends_with(pattern);
}

}  // namespace

bool ProviderCounterSet::initializeFromFile(const char* filename,
                                            const std::vector<std::string>& user_tags) {
  if (!filename) {
    TEV_LOG_ERROR("ProviderCounterSet: missing filename parameter");
    return false;
  }
  return loadFromFile(filename, user_tags);
}

bool ProviderCounterSet::loadFromFile(const std::string& filename,
                                      const std::vector<std::string>& user_tags) {
  return support::loadSetFile(filename, {.content = "counter set", .extension = "cset"}, name_,
                              [&](const support::Lines& lines) { return load(lines, user_tags); });
}

bool ProviderCounterSet::initializeFromLines(const std::vector<std::string>& lines,
                                             const std::vector<std::string>& user_tags) {
  return loadFromLines(lines, user_tags);
}

bool ProviderCounterSet::loadFromLines(const std::vector<std::string>& lines,
                                       const std::vector<std::string>& user_tags) {
  return load(lines, user_tags);
}

template <class Texts>
bool ProviderCounterSet::load(const Texts& lines, const std::vector<std::string>& user_tags) {
  TEV_LOG_DEBUG("[%s] Loading cset file from lines...", kLoadFromLines);
  ProviderCounterSet loaded;  // replaces this set after everything has succeeded
  for (const std::string_view raw_line : lines) {
    const auto line = trimLine(raw_line);
    if (line.empty()) continue;
    if (line.starts_with('#'))
      loaded.readUserTag(trimLine(line.substr(1)), user_tags);
    else
      loaded.readEntry(line);
  }
  std::swap(*this, loaded);
  return isInitialized();
}

void ProviderCounterSet::readUserTag(std::string_view comment,
                                     const std::vector<std::string>& user_tags) {
  for (const auto& tag : user_tags) {
    if (!comment.starts_with(tag) || !comment.substr(tag.size()).starts_with('=')) continue;
    user_tag_values_[tag] = trimLine(comment.substr(tag.size() + 1));
    return;
  }
}

void ProviderCounterSet::readEntry(std::string_view line) {
  const std::string text(line);
  TEV_LOG_DEBUG("[%s] Trimmed line: '%s'", kLoadFromLines, text.c_str());
  const auto equals = line.find('=');
  if (equals == line.size() - 1) {
    TEV_LOG_WARNING("[%s] Invalid line: %s — missing field name or pattern after '='",
                    kLoadFromLines, text.c_str());
    return;
  }
  const std::string pattern(trimLine(line.substr(0, equals)));
  std::string alias;
  if (equals != std::string_view::npos) alias = trimLine(line.substr(equals + 1));
  TEV_LOG_DEBUG("[%s] Parsed: counter_pattern='%s', alias='%s'", kLoadFromLines, pattern.c_str(),
                alias.c_str());
  if (pattern.empty()) {
    TEV_LOG_WARNING("[%s] Invalid line: %s — empty counter pattern", kLoadFromLines, text.c_str());
    return;
  }
  TEV_LOG_DEBUG("[%s] Add mapping: counter_pattern=%s -> alias=%s (counter_pattern_to_alias_)",
                kLoadFromLines, pattern.c_str(), alias.c_str());
  counter_pattern_to_alias_[pattern] = std::move(alias);
}

bool ProviderCounterSet::shouldIncludeCounter(const std::string& name,
                                              const std::string& pattern) const {
  if (counter_pattern_to_alias_.empty() || name.empty()) return false;
  if (!pattern.empty()) return matches(pattern, name);
  return std::any_of(counter_pattern_to_alias_.begin(), counter_pattern_to_alias_.end(),
                     [&](const auto& entry) { return matches(entry.first, name); });
}

std::string ProviderCounterSet::getCounterAlias(const std::string& name) const {
  if (counter_pattern_to_alias_.empty()) {
    TEV_LOG_DEBUG(
        "[%s] No counter patterns defined in counter_pattern_to_alias_, return empty string",
        __func__);
    return {};
  }
  if (name.empty()) {
    TEV_LOG_DEBUG("[%s] Empty counter name, return empty string", __func__);
    return {};
  }
  for (const auto& [pattern, alias] : counter_pattern_to_alias_) {
    if (!matches(pattern, name)) continue;
    TEV_LOG_DEBUG("[%s] Counter '%s' matches pattern '%s', return alias '%s'", __func__,
                  name.c_str(), pattern.c_str(), alias.c_str());
    return alias;
  }
  TEV_LOG_DEBUG("[%s] Counter '%s' not found in any pattern, return empty string", __func__,
                name.c_str());
  return {};
}

std::vector<std::string> ProviderCounterSet::getCounterPatterns() const {
  std::vector<std::string> patterns;
  patterns.reserve(counter_pattern_to_alias_.size());
  for (const auto& entry : counter_pattern_to_alias_) patterns.push_back(entry.first);
  return patterns;
}

const std::unordered_map<std::string, std::string>& ProviderCounterSet::getUserTagValues() const {
  return user_tag_values_;
}

const std::string& ProviderCounterSet::getName() const {
  return name_;
}

bool ProviderCounterSet::isInitialized() const {
  return !counter_pattern_to_alias_.empty();
}

void ProviderCounterSet::printConfiguration() const {
  TEV_LOG_INFO("[%s] '%s' configuration:", __func__, name_.c_str());
  TEV_LOG_INFO("[%s] Initialized: %s", __func__, isInitialized() ? "yes" : "no");
  for (const auto& [pattern, alias] : counter_pattern_to_alias_)
    TEV_LOG_INFO("[%s] Counter pattern: [%s], alias: [%s]", __func__, pattern.c_str(),
                 alias.c_str());
  for (const auto& [tag, value] : user_tag_values_)
    TEV_LOG_INFO("[%s] User tag: %s, Value: %s", __func__, tag.c_str(), value.c_str());
}

}  // namespace tev
