#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Panasonic BL-C, BB-HCM and BB-HCE network cameras (`QVPTZ.Panasonic`), over HTTP.
///
/// Options: Address; Reset, True to go to pan 0, tilt 0 on connecting.
///
/// `Connect` asks the camera for its model and firmware and then for its position, which may fail, and blocks
/// for each answer. It raises 17003 without an address, 17001 where the camera does not answer with status
/// 200, 17002 for a model that is not in the table, 6 for numbers that are out of range and 13 where Reset is
/// no Boolean.
///
/// Positions are whole degrees: targets are rounded, ties to even, and clamped to the limits of the model; a
/// camera that tells how it is mounted widens one of them. Targets beyond 32 bits, and clicks that far away,
/// raise 6 before anything is sent. Cameras with firmware above 1.22 take angles. All others, and BL-C10 and
/// BL-C30 whatever their firmware, take a click into the picture, counted from where the camera is thought to
/// be, and claim `CapabilityRelativeControl`. The position is read on connecting and is the last one
/// commanded from then on.
///
/// Zoom, iris and focus are sent to any model; one that lacks them refuses. There is no home or preset.
class Panasonic final : public PTZDevice, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Panasonic(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override { return Capabilities_; }
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return static_cast<float>(CurrentPan_); }
  float Tilt() override { return static_cast<float>(CurrentTilt_); }
  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  bool Iris(ptzd::Iris irisLevel) override;
  bool Focus(ptzd::Focus focusLevel) override;
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

 private:
  struct Model;
  struct Range {
    std::int32_t Min = 0, Max = 0;  // degrees
  };

  void SetUp(std::string_view information);
  bool Step(double panAngle, double tiltAngle);
  bool GoTo(double targetPan, double targetTilt);

  ptzd::Capabilities Capabilities_{};
  Range PanLimits_, TiltLimits_;
  float ViewWidth_ = 0;  // degrees, horizontally
  bool TakesAngles_ = false;
  std::int32_t CurrentPan_ = 0;   // degrees
  std::int32_t CurrentTilt_ = 0;  // degrees
};

}  // namespace ptzd
