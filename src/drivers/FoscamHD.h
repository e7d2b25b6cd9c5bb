#pragma once

#include "drivers/FoscamDriver.h"

namespace ptzd {

/// Foscam HD cameras (`QVPTZ.FoscamHD`), which are told named commands.
///
/// Options: Address, in which "user:password@" before the host, percent-encoded where need be, also goes to
/// the camera in every query; MoveInterval, milliseconds for 5 degrees (50; beyond 16 bits `Connect` raises
/// 6).
///
/// Moves block while the motor runs and for three requests at most. They answer False on purpose, also where
/// the camera moved; a wait beyond 32 bits raises 6 before anything is sent. Continuous speeds below 5, 10,
/// 15 and 20 are the camera's 4 (slowest) to 1, and from 20 on its 0.
class FoscamHD final : public FoscamDriver {
 public:
  static const DriverData Data;

  explicit FoscamHD(const Platform& platform = {});

  void ContinuousMove(float pan, float tilt) override;

 private:
  static const CommandSet Commands;

  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  bool GoHome() override;
  std::string Credentials() const override;

  void SetSpeed(std::int32_t speed);

  std::int16_t MoveInterval_;  // milliseconds
  std::int32_t Speed_;         // as the camera has it
};

}  // namespace ptzd
