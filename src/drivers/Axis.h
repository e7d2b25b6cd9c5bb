#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZOptions.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

namespace ptzd {

/// Axis network cameras and video servers (`QVPTZ.Axis`), over their VAPIX HTTP interface.
///
/// Options: Address; Port, the camera behind a video server, 1 and up (0, the default: the only or first
/// one); ZoomStep, camera zoom units per zoom unit here (0, the default: found from the camera's field
/// angles); Reset, True to go to pan 0, tilt 0, zoom 0 on connecting.
///
/// `Connect` raises 17003 without an address, 17001 where the camera does not answer, 17002 where its head
/// neither pans, tilts nor zooms, and 13 or 6 for numbers, of options or the camera, that are none or out of
/// range.
///
/// Moves go to whole degrees, ties to even: pan is brought back by one turn beyond -180 to 180, tilt is
/// clamped to the same. Zoom is 0 at the widest, below 0 is 0; one unit is `ZoomStep` units of the camera.
/// Targets beyond 32 bits raise 6 before the camera is told to move.
///
/// A head without absolute pan, tilt and zoom is moved relatively from where it stands at `Connect`, and has
/// 63 numbered presets. Any other head reports its position, which is read at most every 5 seconds. There is
/// no home.
///
/// Continuous speeds: pan and tilt -50 to 50 (the camera's -100 to 100), zoom -10 to 10 (squared); the camera
/// limits them.
class Axis final : public DualDevice, public ContinuousDriver, public TabledOptions, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Axis(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override;
  float Tilt() override;
  float ZoomLevel() override;

  bool MoveTo(float pan, float tilt) override;
  void MoveTo(float pan, float tilt, float zoom) override;
  bool Zoom(Zooms zoomLevel) override;
  void Zoom(Zooms direction, float amount) override;
  void ZoomTo(float zoom) override;
  bool Iris(ptzd::Iris irisLevel) override;
  bool Focus(ptzd::Focus focusLevel) override;
  std::int32_t PresetCount() override;
  bool PresetGoto(std::int32_t preset) override;
  bool PresetSave(std::int32_t preset) override;
  void SetPanTilt(float pan, float tilt) override;

  void ContinuousMove(float pan, float tilt) override;
  void ContinuousZoom(float amount) override;

 private:
  struct Head;

  bool DeviceMove(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  Variant DeviceDisconnect() override;
  std::span<const OptionRow> OptionTable() const override;

  void SetUp(const Head& head);
  std::optional<std::string> SendCommand(std::string_view command, bool config = false);
  bool AbsoluteMove(double pan, double tilt, float zoom);
  std::string MoveCommand(std::int32_t pan, std::int32_t tilt, float zoom) const;
  void SendContinuous(const std::string& command, bool isStop, LastMotion<std::string>& last);
  void RefreshPosition();
  void QueryPosition();

  ptzd::Capabilities Capabilities_{};
  bool RelativeMode_ = false;
  float ZoomStep_ = 0;
  std::int32_t CurrentPan_ = 0;   // degrees
  std::int32_t CurrentTilt_ = 0;  // degrees
  float CurrentZoom_ = 0;
  PositionAge PositionAge_;
};

}  // namespace ptzd
