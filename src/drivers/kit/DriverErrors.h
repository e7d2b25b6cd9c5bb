#pragma once

#include <ptzd/Enumerations.h>
#include <ptzd/Error.h>

#include <string>
#include <utility>

namespace ptzd {

/// Raises a driver's hard failure to the host; the source is the driver's own class. What a description
/// quotes of a camera's reply goes through `MaskCredentials`: a page may echo the login.
[[noreturn]] inline void Raise(PTZErrors number, std::string_view description) {
  throw Error(number, std::string(description));
}

}  // namespace ptzd
