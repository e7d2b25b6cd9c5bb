#pragma once

#include <toml++/toml.h>

#include <cstdint>
#include <string>
#include <vector>

#include "cameras/InputWords.h"

namespace ptzd {

/// Raises `InputError` with file, line, column, and what was expected there.
toml::table ParseTOML(const std::string& text, const std::string& file);

/// Reads the values of one file. `what` is what a value stands for; all raise `InputError` with file, line
/// and column for another kind of value than is expected.
class TOMLReader {
 public:
  explicit TOMLReader(std::string file) : File_(std::move(file)) {}

  const std::string& File() const { return File_; }

  [[noreturn]] void Fail(const toml::source_region& at, const std::string& problem) const;
  [[noreturn]] void FailUnknown(const toml::key& key, const std::string& what,
                                const std::vector<std::string>& known) const;
  [[noreturn]] void FailType(const toml::node& node, const std::string& what, const char* expected) const;

  const toml::table& Table(const toml::node& node, const std::string& what) const;
  std::string TextAt(const toml::node& node, const std::string& what) const;
  bool BooleanAt(const toml::node& node, const std::string& what) const;
  float NumberAt(const toml::node& node, const std::string& what) const;
  std::int32_t WholeNumberAt(const toml::node& node, const std::string& what) const;

 private:
  const std::string File_;
};

}  // namespace ptzd
