#pragma once

#include <nlohmann/json.hpp>

#include <string>

namespace ptzgate {

/// A file of what the gateway must know after its end, as JSON. It is written anew, whole, at each change.
class StateFile {
 public:
  /// `what` it holds, for texts. An empty folder: nothing is kept.
  StateFile(const std::string& folder, const char* name, const char* what);

  /// Has `take` understand what is there; not called where there is no file. Raises `std::runtime_error` for
  /// a file that cannot be read, or that `take` does not understand.
  template <typename Take>
  void Read(const Take& take) const {
    const auto document = Document();
    if (document.is_null()) return;
    try {
      take(document);
    } catch (const std::exception& error) {
      Fail("understood", error.what());
    }
  }
  /// Raises `std::runtime_error`, with the file as it was.
  void Write(const nlohmann::json& document) const;

 private:
  nlohmann::json Document() const;
  [[noreturn]] void Fail(const char* how, const char* why) const;

  std::string File_;
  const char* What_;
};

}  // namespace ptzgate
