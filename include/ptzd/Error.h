#pragma once

#include <cstdint>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include <ptzd/Export.h>

namespace ptzd {

/// The run time's own error numbers; a host knows them by these values.
enum RunTimeError : std::int32_t {
  ErrorInvalidCall = 5,
  ErrorOverflow = 6,
  ErrorSubscript = 9,
  ErrorDivisionByZero = 11,
  ErrorTypeMismatch = 13,
  ErrorPathAccess = 75,
  ErrorObjectNotSet = 91,
  ErrorCannotCreateObject = 429,
  ErrorDuplicateKey = 457,
};

/// The one exception type of the library: what a host sees as error number, source and description.
class PTZD_API Error : public std::exception {
 public:
  Error(std::int32_t number, std::string description, std::optional<std::string> source = std::nullopt)
      : Number_(number), Description_(std::move(description)), Source_(std::move(source)) {}

  std::int32_t Number() const noexcept { return Number_; }
  const std::string& Description() const noexcept { return Description_; }
  /// Absent: the host is told the object's own class ("QVPTZ.Axis"). Present, also when empty: told as it is.
  const std::optional<std::string>& Source() const noexcept { return Source_; }
  const char* what() const noexcept override { return Description_.c_str(); }

 private:
  std::int32_t Number_;
  std::string Description_;
  std::optional<std::string> Source_;
};

/// The usual text of a run-time error number.
PTZD_API std::string RunTimeErrorText(RunTimeError number);

/// Throws `Error` with the number's usual text.
[[noreturn]] PTZD_API void Raise(RunTimeError number);

}  // namespace ptzd
