#pragma once

#include <toml++/toml.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "cameras/InputWords.h"

namespace ptzd {

struct PasswordSource;

/// Raises `InputError` with file, line, column, and what was expected there.
toml::table ParseTOML(const std::string& text, const std::string& file);

/// Reads the values of one file. `what` is what a value stands for; all raise `InputError` with file, line
/// and column for another kind of value than is expected.
class TOMLReader {
 public:
  /// `openness`: why others may read the file, which forbids passwords in it; empty: they may not.
  explicit TOMLReader(std::string file, std::string openness = {})
      : File_(std::move(file)), Openness_(std::move(openness)) {}

  const std::string& File() const { return File_; }

  /// "cameras.toml:3:9: ", before what is said of it.
  std::string PlaceOf(const toml::source_region& at) const;
  [[noreturn]] void Fail(const toml::source_region& at, const std::string& problem) const;
  [[noreturn]] void FailUnknown(const toml::key& key, const std::string& what,
                                const std::vector<std::string>& known) const;
  [[noreturn]] void FailType(const toml::node& node, const std::string& what, const char* expected) const;
  /// What `read` answers. Its `InputError` is told as of the node, behind `before`, where it does not say yet
  /// where in the file it is.
  template <typename Read>
  auto Placed(const toml::node& node, const std::string& before, const Read& read) const {
    try {
      return read();
    } catch (const InputError& error) {
      const std::string text = error.what();
      if (text.starts_with(File_ + ":")) throw;
      Fail(node.source(), before + text);
    }
  }

  const toml::table& Table(const toml::node& node, const std::string& what) const;
  std::string TextAt(const toml::node& node, const std::string& what) const;
  bool BooleanAt(const toml::node& node, const std::string& what) const;
  float NumberAt(const toml::node& node, const std::string& what) const;
  std::int32_t WholeNumberAt(const toml::node& node, const std::string& what) const;
  /// As `ReadDuration`, or a number of seconds; 0 too.
  std::chrono::milliseconds TimeAt(const toml::node& node, const std::string& what) const;
  /// A path that begins at the folder of the file, or at "~/".
  std::string PathAt(const toml::node& node, const std::string& what) const;
  /// `key` says where it comes from: "password" itself, or one that goes on with "_env", "_file", "_keyring"
  /// or "_prompt".
  PasswordSource PasswordAt(const std::string& key, const toml::node& node, const std::string& what) const;

 private:
  const std::string File_, Openness_;
};

}  // namespace ptzd
