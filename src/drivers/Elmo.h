#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Elmo 200 series network cameras (`QVPTZ.Elmo`), over HTTP.
///
/// Options: Address; Reset, True to go to motor position 8714, 1722 (about pan 0, tilt 0) on connecting.
///
/// `Connect` answers False without an address and where the control page does not answer "NG"; it raises 13
/// for a Reset that is no Boolean.
///
/// Pan is -150 to 150 and tilt -90 to 30 degrees, in motor steps of 1/58.08 and 1/57.6 degree (the scales are
/// the camera's); targets beyond are clamped, those beyond 32 bits of steps raise 6. The camera does not tell
/// its position; it is that of the last move it took, at first pan -150 and tilt 30.
///
/// There are 6 numbered presets, and no home.
class Elmo final : public PTZDevice, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Elmo(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override;
  float Tilt() override;

  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  bool Iris(ptzd::Iris irisLevel) override;
  bool Focus(ptzd::Focus focusLevel) override;
  std::int32_t PresetCount() override;
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

 private:
  /// Motor steps from the left and the upper end, within the camera's range.
  struct Position {
    std::int32_t Pan = 0, Tilt = 0;

    static Position Near(double panSteps, double tiltSteps);
    static Position At(float pan, float tilt);
  };

  bool Control(std::string_view parameters);
  bool MoveToPosition(const Position& target);

  Position Current_;
};

}  // namespace ptzd
