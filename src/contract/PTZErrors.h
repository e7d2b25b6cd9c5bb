#pragma once

#include <string>

#include "common/Error.h"
#include "contract/Enumerations.h"

namespace ptzd {

/// Raises a driver's hard failure to the host; the source is the driver's own class.
[[noreturn]] inline void Raise(PTZErrors number, std::string description) {
  throw Error(number, std::move(description));
}

}  // namespace ptzd
