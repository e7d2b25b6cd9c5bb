#pragma once

#include <ptzd/Enumerations.h>

namespace ptzd {

/// Where a head looks or is to look. Degrees, pan to the right, tilt upwards, and zoom in the driver's own
/// scale, unless a driver counts in its camera's units.
struct HeadPosition {
  double Pan = 0, Tilt = 0, Zoom = 0;
};

/// A step in a direction as signed amounts: left before right and up before down where both bits are set.
struct DirectionStep {
  double Pan = 0;
  double Tilt = 0;
};
constexpr DirectionStep StepOf(Directions direction, float angle) {
  DirectionStep step;
  if (direction & (DirectionLeft | DirectionRight)) step.Pan = direction & DirectionLeft ? -angle : angle;
  if (direction & (DirectionUp | DirectionDown)) step.Tilt = direction & DirectionUp ? angle : -angle;
  return step;
}
/// The same for makes that let opposite directions cancel each other out.
constexpr DirectionStep CancellingStepOf(Directions direction, float angle) {
  constexpr auto sideways = DirectionLeft | DirectionRight, upright = DirectionUp | DirectionDown;
  auto step = StepOf(direction, angle);
  if ((direction & sideways) == sideways) step.Pan = 0;
  if ((direction & upright) == upright) step.Tilt = 0;
  return step;
}

/// Whether a value that may come from a host is in or out.
constexpr bool IsZoomStep(Zooms direction) { return direction == ZoomIn || direction == ZoomOut; }

/// A zoom step as a signed amount, 0 for anything but in and out.
constexpr float ZoomStepOf(Zooms direction, float amount) {
  return direction == ZoomIn ? amount : direction == ZoomOut ? -amount : 0;
}

}  // namespace ptzd
