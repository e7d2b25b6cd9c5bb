#pragma once

#include "drivers/kit/Driver.h"

namespace ptzd {

/// Adds `PTZDevice2` to a driver's base, for cameras with a zoom position. Its members work under the rules
/// of those of `PTZDevice` and answer nothing.
template <class Base>
class WithZoom : public Base, public PTZDevice2Bridge {
 public:
  using Base::Disconnect;
  using Base::Move;
  using Base::MoveBoth;
  using Base::MoveTo;
  using Base::Zoom;

  ptzd::Capabilities Capabilities() override { return Base::Capabilities(); }
  bool Connect(std::span<const std::uint8_t> options) final { return Base::Connect(options); }
  bool Connected() final { return Base::Connected(); }
  float Pan() override { return Base::Pan(); }
  float Tilt() override { return Base::Tilt(); }
  float ZoomLevel() override { return this->Answer(&HeadPosition::Zoom); }

  void MoveTo(float pan, float tilt, float zoom) final { this->MoveToPlace(pan, tilt, zoom); }
  void Zoom(Zooms direction, float amount) final { this->ZoomStep(direction, amount); }
  void ZoomTo(float zoom) final { this->ZoomTarget(zoom); }

 protected:
  using Base::Base;

  void Device2Move(Directions direction, float angle) override { this->DeviceMove(direction, angle); }
  void Device2MoveBoth(float panAngle, float tiltAngle) override {
    this->DeviceMoveBoth(panAngle, tiltAngle);
  }
  void Device2Disconnect() override { this->DeviceDisconnect(); }
};

}  // namespace ptzd
