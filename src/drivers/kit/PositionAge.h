#pragma once

#include <cstdint>

#include "common/TimeDiffMod.h"

namespace ptzd {

/// How old a driver's knowledge of its camera's position is. Ticks are those of `Clock::TickCount`.
class PositionAge {
 public:
  /// `lifetime` is how many milliseconds a position is good for.
  explicit PositionAge(std::int32_t lifetime) : Lifetime_(lifetime) {}

  /// Whether the camera has to be asked before the position is used.
  bool IsDue(std::int32_t now) const { return Stale_ || TimeDiff(Since_, now) >= Lifetime_; }

  /// The position was asked for or commanded now. A stale one stays stale: something else may have moved the
  /// camera.
  void Set(std::int32_t now) { Since_ = now; }
  /// Something moved the camera that the driver cannot work out.
  void Expire() { Stale_ = true; }
  /// The camera was asked, whatever it answered.
  void Asked() { Stale_ = false; }

 private:
  std::int32_t Lifetime_;
  std::int32_t Since_ = 0;
  bool Stale_ = false;
};

}  // namespace ptzd
