#pragma once

#include <cstdint>
#include <string_view>

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
class Panasonic final : public HTTPDriver {
 public:
  static const DriverData Data;

  explicit Panasonic(const Platform& platform = {});

 private:
  struct Model;
  struct Range {
    std::int32_t Min = 0, Max = 0;  // degrees
  };

  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool ZoomBy(Zooms direction, float amount) override;
  bool SetIris(ptzd::Iris level) override;
  bool SetFocus(ptzd::Focus level) override;
  void TakePlace(float pan, float tilt) override;

  void SetUp(std::string_view information);
  HeadPosition Reachable(double pan, double tilt) const;
  bool SendCommand(std::string_view command);

  Range PanLimits_, TiltLimits_;
  float ViewWidth_ = 0;  // degrees, horizontally
  bool TakesAngles_ = false;
};

}  // namespace ptzd
