#pragma once

#include <chrono>
#include <cstdint>

namespace ptzd {

/// The time as drivers see it. Tests hand a driver a clock of their own.
class Clock {
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
Clock& SystemClock();

}  // namespace ptzd
