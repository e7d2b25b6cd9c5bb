#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Toshiba IK-WB15 and IK-WB21 network cameras (`QVPTZ.Toshiba2`), over HTTP. They are moved by storing a
/// position in their preset 64 and recalling it, so what was stored there is lost.
///
/// Options: Address.
///
/// `Connect` answers False without an address and where the camera refuses or does not answer; it raises 6
/// where the camera tells a position beyond 32 bits of degrees.
///
/// Positions are whole degrees, ties to even. No limits are kept here: pan -175 and tilt 30 are the camera's
/// 0, in steps of 1/22.04571429 and 1/21.80833333 degree; targets beyond 32 bits raise 6. The camera is asked
/// for its position on connecting, from then on it is the one last sent, whatever the camera answered; moves
/// answer False always.
///
/// There is no iris, focus, home or preset.
class Toshiba2 final : public PTZDevice, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Toshiba2(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override { return CapabilityPan | CapabilityTilt | CapabilityZoom; }
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return static_cast<float>(CurrentPan_); }
  float Tilt() override { return static_cast<float>(CurrentTilt_); }

  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  /// Also while not connected.
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

 private:
  void ReadPosition(std::string_view reply);
  bool MoveToPosition(double targetPan, double targetTilt);

  std::int32_t CurrentPan_ = 0;   // degrees
  std::int32_t CurrentTilt_ = 0;  // degrees
};

}  // namespace ptzd
