#pragma once

#include "drivers/FoscamDriver.h"

namespace ptzd {

/// Foscam cameras of the older generation (`QVPTZ.Foscam`), which are told numbered commands.
///
/// Options: Address; InvertPan, True to have left and right sent for each other, while the position stays as
/// asked for. It is read by every movement, which raises 13 where it is no Boolean.
///
/// Moves are steps of so many degrees and answer whether the camera took them. Continuous motion knows no
/// speeds.
class Foscam final : public FoscamDriver {
 public:
  static const DriverData Data;

  explicit Foscam(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;

 private:
  static const CommandSet Commands;

  bool GoTo(HeadPosition target) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;

  float InvertIfAsked(float pan) const;
  bool SendNumbered(double command);
};

}  // namespace ptzd
