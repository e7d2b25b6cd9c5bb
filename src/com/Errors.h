#pragma once

#include "com/Automation.h"

#include <string>

#include <ptzd/Error.h>

namespace ptzd::com {

/// A failure of COM itself that crosses as its HRESULT.
class ComError : public Error {
 public:
  explicit ComError(HRESULT result, const std::string& what) : Error(result, what) {}
};

inline void Check(HRESULT result, const char* what) {
  if (FAILED(result)) throw ComError(result, what);
}

/// What an error number is to COM: a run-time or driver number in the control facility, where scripts find it
/// again as `Err.Number`; a number that is an HRESULT already stands as it is.
HRESULT ResultFromNumber(std::int32_t number);

/// Call in a catch block: puts the exception into the thread's error object and answers its HRESULT.
HRESULT ReportException(const std::string& defaultSource) noexcept;

/// Moves the thread's error object into the description of a failed late-bound call; answers what such a call
/// returns.
HRESULT FillException(HRESULT failure, EXCEPINFO* exception) noexcept;

/// The inverse, for calls that we make: throws what a failed late-bound call left, its number being the
/// run-time number where it is one.
[[noreturn]] void ThrowException(HRESULT failure, EXCEPINFO& exception);

}  // namespace ptzd::com
