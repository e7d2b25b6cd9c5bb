#pragma once

#include <optional>

#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

namespace ptzd {

/// Where a head looks: degrees, pan to the right, tilt upwards; zoom in the driver's own scale.
struct HeadPosition {
  float Pan = 0, Tilt = 0, Zoom = 0;
};

/// Base of an HTTP driver whose camera tells and takes positions as absolute values. `Pan`, `Tilt` and
/// `ZoomLevel` answer from a model of the position. Steps ask the camera first, at most every 5 seconds;
/// targets do not. Opposite directions cancel each other out. Nothing needs a connection.
class AbsoluteDriver : public DualDevice, protected HTTPDriver {
 public:
  bool Connected() override { return Connected_; }
  float Pan() override { return Current_.Pan; }
  float Tilt() override { return Current_.Tilt; }
  float ZoomLevel() override { return Current_.Zoom; }

  bool MoveTo(float pan, float tilt) override;
  void MoveTo(float pan, float tilt, float zoom) override;
  bool Zoom(Zooms zoomLevel) override;
  void Zoom(Zooms direction, float amount) override;
  void ZoomTo(float zoom) override;

 protected:
  using HTTPDriver::HTTPDriver;

  bool DeviceMove(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  Variant DeviceDisconnect() override;

  /// Asks the camera; what it does not tell is taken from the model, nothing where it does not answer.
  virtual std::optional<HeadPosition> QueryPosition() = 0;
  /// Sends the head to a target, brought into the camera's range, and keeps the model. Raises 6, with nothing
  /// sent or kept, for one that does not fit the camera's numbers.
  virtual bool SetPosition(HeadPosition target) = 0;

  /// Takes the camera's answer for the model. Counts as asked whatever comes of it.
  void ReadPosition();
  /// The same where the model is too old to go on from.
  void RefreshPosition();
  /// Goes from where the camera is. Raises 6, with nothing asked or sent, for a step that is no number.
  bool StepBy(double panStep, double tiltStep, double zoomStep);

  HeadPosition Current_;
  PositionAge PositionAge_;
};

}  // namespace ptzd
