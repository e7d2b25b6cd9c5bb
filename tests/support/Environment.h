#pragma once

#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace ptzd::test {

/// While it lives, variables of the process's environment have other values; those of null are not there.
class Environment {
 public:
  Environment(std::initializer_list<std::pair<const char*, const char*>> variables) {
    for (const auto& [name, value] : variables) {
      const char* before = std::getenv(name);
      Before_.emplace_back(name, before == nullptr ? std::nullopt : std::optional<std::string>(before));
      Set(name, value);
    }
  }
  ~Environment() {
    for (auto variable = Before_.rbegin(); variable != Before_.rend(); ++variable)
      Set(variable->first, variable->second ? variable->second->c_str() : nullptr);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  static void Set(const char* name, const char* value) {
    if (value == nullptr)
      unsetenv(name);
    else
      setenv(name, value, 1);
  }

  std::vector<std::pair<const char*, std::optional<std::string>>> Before_;
};

}  // namespace ptzd::test
