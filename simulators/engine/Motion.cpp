#include "simulators/engine/Motion.h"

#include <algorithm>
#include <cmath>

namespace ptzsim {

double Wrapped(double angle, double from, double turn) {
  return angle - turn * std::floor((angle - from) / turn);
}

Motion::Motion(const Clock& clock, double start, Range range, double speed)
    : Clock_(&clock), Range_(range), Speed_(speed), From_(start), Target_(start), Since_(clock.Now()) {}

double Motion::Position() const {
  if (Velocity_ == 0) return From_;
  const double seconds = std::chrono::duration<double>(Clock_->Now() - Since_).count();
  const double position = From_ + Velocity_ * seconds;
  return Velocity_ > 0 ? std::min(position, Target_) : std::max(position, Target_);
}

bool Motion::Moving() const { return Velocity_ != 0 && Position() != Target_; }

void Motion::MoveTo(double target) {
  const double reachable = std::clamp(target, Range_.Min, Range_.Max);
  Start(reachable, std::copysign(Speed_, reachable - Position()));
}

void Motion::TurnTo(double direction, double turn) {
  MoveTo(direction + turn * std::round((Position() - direction) / turn));
}

void Motion::Run(double velocity) { Start(velocity > 0 ? Range_.Max : Range_.Min, velocity); }

void Motion::Start(double target, double velocity) {
  From_ = Position();
  Since_ = Clock_->Now();
  Target_ = target;
  Velocity_ = From_ == target ? 0 : velocity;
}

}  // namespace ptzsim
