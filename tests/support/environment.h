// Environment variables for the duration of a test.
#pragma once

#include <cstdlib>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>

namespace tev::test {

// Sets and unsets variables; puts everything back as it was at the end.
class Environment {
 public:
  Environment() = default;
  ~Environment() {
    for (const auto& [name, value] : before_) apply(name, value);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  void set(const std::string& name, const std::optional<std::string>& value) {
    const char* const now = getenv(name.c_str());
    before_.try_emplace(name, now ? std::optional<std::string>(now) : std::nullopt);
    apply(name, value);
  }

  // Neither the variable nor its form without "TEV_" exists afterwards.
  void unset(std::initializer_list<const char*> prefixed_names) {
    for (const std::string name : prefixed_names) {
      set(name, std::nullopt);
      set(name.substr(4), std::nullopt);
    }
  }

 private:
  static void apply(const std::string& name, const std::optional<std::string>& value) {
    if (value)
      setenv(name.c_str(), value->c_str(), 1);
    else
      unsetenv(name.c_str());
  }

  std::map<std::string, std::optional<std::string>> before_;
};

}  // namespace tev::test
