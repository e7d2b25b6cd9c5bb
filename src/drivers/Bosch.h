#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

namespace ptzd {

/// Bosch domes and pan-tilt cameras (`QVPTZ.Bosch`), over their HTTP interface.
///
/// Options: Address.
///
/// `Connect` raises 17001 without an address and makes no test of reachability: it answers True whether or
/// not the camera could be asked where it is.
///
/// Pan is -180 to 180 degrees, targets beyond go around; tilt and zoom have no bounds here, their camera
/// values wrap at 16 bits. The zoom level is the camera's value over 45. What goes beyond 32 bits raises 6
/// before the camera is told to move. Every move answers False, also one that was made. `PTZDevice2::Move`
/// goes down whatever the direction.
///
/// A move reads the position first where it is older than 5 seconds or continuous motion went on, three
/// requests of which the first that fails is the last; a tilt below the horizon is read as one far above it.
/// `Pan`, `Tilt` and `ZoomLevel` ask nothing: they are what was read, truncated to tenths of a degree and
/// rounded to quarters of the zoom, or commanded since, also where the camera did not obey or answer.
///
/// Continuous speeds: pan and tilt -20 to 20; beyond, the camera's 15 steps wrap at 16. The zoom knows no
/// continuous motion. There is no iris, focus, home or preset. Nothing needs a connection.
class Bosch final : public DualDevice, public ContinuousDriver, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Bosch(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override { return CurrentPan_; }
  float Tilt() override { return CurrentTilt_; }
  float ZoomLevel() override { return CurrentZoom_; }

  bool MoveTo(float pan, float tilt) override;
  void MoveTo(float pan, float tilt, float zoom) override;
  bool Zoom(Zooms zoomLevel) override;
  void Zoom(Zooms direction, float amount) override;
  void ZoomTo(float zoom) override;

  void ContinuousMove(float pan, float tilt) override;

 private:
  bool DeviceMove(Directions direction, float angle) override;
  void Device2Move(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  Variant DeviceDisconnect() override;

  std::optional<std::string> SendRcp(std::string_view payload);
  void Set(std::int32_t object, std::int32_t value);
  std::optional<std::int32_t> Read(std::int32_t object);
  void ReadPosition();
  void RefreshPosition();
  bool SetPosition(double targetPan, double targetTilt, double targetZoom);

  float CurrentPan_ = 0;   // degrees
  float CurrentTilt_ = 0;  // degrees
  float CurrentZoom_ = 0;
  PositionAge PositionAge_;
};

}  // namespace ptzd
