#include "drivers/kit/AbsoluteDriver.h"

#include "common/Numbers.h"

namespace ptzd {

bool AbsoluteDriver::DeviceMove(Directions direction, float angle) {
  const auto step = CancellingStepOf(direction, angle);
  return StepBy(step.Pan, step.Tilt, 0);
}

bool AbsoluteDriver::DeviceMoveBoth(float panAngle, float tiltAngle) {
  return StepBy(panAngle, tiltAngle, 0);
}

bool AbsoluteDriver::MoveTo(float pan, float tilt) { return SetPosition({pan, tilt, Current_.Zoom}); }

void AbsoluteDriver::MoveTo(float pan, float tilt, float zoom) { SetPosition({pan, tilt, zoom}); }

bool AbsoluteDriver::Zoom(Zooms zoomLevel) { return StepBy(0, 0, ZoomStepOf(zoomLevel, ZoomStepAmount)); }

void AbsoluteDriver::Zoom(Zooms direction, float amount) { StepBy(0, 0, ZoomStepOf(direction, amount)); }

void AbsoluteDriver::ZoomTo(float zoom) { SetPosition({Current_.Pan, Current_.Tilt, zoom}); }

Variant AbsoluteDriver::DeviceDisconnect() {
  Connected_ = false;
  return {};
}

bool AbsoluteDriver::StepBy(double panStep, double tiltStep, double zoomStep) {
  const auto pan = ToSingle(panStep), tilt = ToSingle(tiltStep), zoom = ToSingle(zoomStep);
  RefreshPosition();
  return SetPosition(
      {ToSingle(Current_.Pan + pan), ToSingle(Current_.Tilt + tilt), ToSingle(Current_.Zoom + zoom)});
}

void AbsoluteDriver::RefreshPosition() {
  if (PositionAge_.IsDue(TickCount())) ReadPosition();
}

void AbsoluteDriver::ReadPosition() {
  PositionAge_.Set(TickCount());
  PositionAge_.Asked();
  if (const auto position = QueryPosition()) Current_ = *position;
}

}  // namespace ptzd
