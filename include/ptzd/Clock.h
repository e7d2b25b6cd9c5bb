#pragma once

#include <chrono>
#include <cstdint>

#include <ptzd/Export.h>

namespace ptzd {

/// The time as drivers see it. Tests hand a driver a clock of their own.
class PTZD_API Clock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  virtual ~Clock() = default;

  /// The system's tick count in milliseconds; it wraps after 2^32 ms, as a signed number.
  virtual std::int32_t TickCount() = 0;
  virtual TimePoint Now() = 0;
  /// Blocks until the deadline, which may have passed already.
  virtual void SleepUntil(TimePoint deadline) = 0;
};

/// The system's own clock, implemented by the platform.
PTZD_API Clock& SystemClock();

}  // namespace ptzd
