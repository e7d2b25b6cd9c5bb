#pragma once

#include <cstdint>
#include <string_view>

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
class Elmo final : public HTTPDriver {
 public:
  static const DriverData Data;

  explicit Elmo(const Platform& platform = {});

  float Pan() override;
  float Tilt() override;

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool StepBy(double pan, double tilt) override;
  bool ZoomBy(Zooms direction, float amount) override;
  bool SetIris(ptzd::Iris level) override;
  bool SetFocus(ptzd::Focus level) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  void TakePlace(float pan, float tilt) override;

  bool GoToSteps(const HeadPosition& target);
  bool SendCommand(std::string_view parameters);
};

}  // namespace ptzd
