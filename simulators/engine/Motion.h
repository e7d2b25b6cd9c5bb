#pragma once

#include <chrono>
#include <cmath>
#include <limits>

#include "simulators/engine/Clock.h"

namespace ptzsim {

/// The same direction of an axis that turns without end, `from` up to below a full turn more.
double Wrapped(double angle, double from, double turn = 360);

/// One moving quantity of a head (pan, tilt, zoom, focus, iris) in the camera's own units. Its position is
/// worked out from the clock when it is asked for; it stops at its ends. Not locked: the make guards it.
class Motion {
 public:
  struct Range {
    double Min;
    double Max;
  };
  /// Of an axis that turns without end: its position is counted on beyond a full turn.
  static constexpr Range Endless{-1e9, 1e9};
  /// Of values that may run over the ends.
  static constexpr Range Any{-std::numeric_limits<double>::infinity(),
                             std::numeric_limits<double>::infinity()};

  /// `speed` is in units per second, for moves to a target.
  Motion(const Clock& clock, double start, Range range, double speed);

  double Position() const;
  bool Moving() const;

  /// Starts towards `target`, clamped to the range, at the speed of the constructor.
  void MoveTo(double target);
  /// The same, counted from where the quantity is now.
  void MoveBy(double distance) { MoveTo(Position() + distance); }
  /// The same towards a direction of an endless axis, the short way around.
  void TurnTo(double direction, double turn = 360);
  /// Runs at `velocity` units per second until it is told otherwise or meets an end; 0 stops.
  void Run(double velocity);
  void Stop() { Run(0); }

  Range Limits() const { return Range_; }

 private:
  void Start(double target, double velocity);

  const Clock* Clock_;
  Range Range_;
  double Speed_;
  double From_;
  double Target_;
  double Velocity_ = 0;
  std::chrono::milliseconds Since_;
};

/// The way of an axis in camera units, which count from 0, and in degrees.
struct Scale {
  double Last;        ///< unit
  double Start, End;  ///< degrees at 0 and at the last unit

  Motion::Range Range() const { return {0, Last}; }
  double Degrees(double units) const { return Start + units * (End - Start) / Last; }
  double Units(double degrees) const { return (degrees - Start) * Last / (End - Start); }
  double PerSecond(double degrees) const { return std::abs(degrees * Last / (End - Start)); }
};

}  // namespace ptzsim
