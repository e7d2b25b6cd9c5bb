#pragma once

#include <chrono>
#include <cstdint>

#include <ptzd/Clock.h>

namespace ptzd {

/// Drives a motor for a time: starts, blocks for `wait` milliseconds (not at all for 0 and less) from the
/// moment the start was sent, stops. A stop is tried whatever fails before it; of several errors the first is
/// raised. Callers compute the wait and what is sent before, so that nothing but sending can fail on the way.
template <typename Start, typename Stop>
void DriveFor(Clock& clock, std::int32_t wait, const Start& start, const Stop& stop) {
  try {
    start();
    clock.SleepUntil(clock.Now() + std::chrono::milliseconds(wait));
  } catch (...) {
    try {
      stop();
    } catch (...) {
      // The line is gone for the stop too; what it was gone for first says more.
    }
    throw;
  }
  stop();
}

}  // namespace ptzd
