#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include <ptzd/DriverData.h>
#include <ptzd/PTZOptions.h>
#include <ptzd/Platform.h>
#include <ptzd/PropertyBag.h>
#include "drivers/kit/ContinuousDriver.h"
#include "drivers/kit/DeviceBridge.h"
#include "drivers/kit/LastMotion.h"

namespace ptzd {

/// Secubest pan-tilt-zoom units (`QVPTZ.Secubest`), over framed messages on a TCP connection.
///
/// Options: Address, in dotted decimal (names are not resolved), with ":port" unless the unit listens on
/// 7777; MoveInterval, milliseconds for 5 degrees (200); MoveSpeed (200), which no command uses.
///
/// `Connect` blocks for at most 21 seconds; it raises 17003 without an address and 17001 with the system's
/// error number where no socket can be opened or the unit does not take the connection. A connection that
/// breaks later is not noticed: commands are lost, each after at most 5 seconds.
///
/// Units do not answer, so the position is an estimate from how long the motors were driven; it survives
/// reconnecting, and continuous motion does not change it. Moves block while the motors run, answer True when
/// sent and False when not connected. Continuous speeds: pan and tilt in twenty-fifths of the unit's, zoom in
/// the unit's own; both need no connection flag, only a socket that is open. Speeds and waits that do not fit
/// raise 6 before anything is sent. There is no iris, focus, home or preset.
class Secubest final : public DualDevice, public ContinuousDriver, public TabledOptions {
 public:
  static const DriverData Data;

  explicit Secubest(const Platform& platform = {});

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
  void ContinuousZoom(float amount) override;

 private:
  /// A continuous command as it was last sent.
  struct Motion {
    std::uint8_t Code = 0;
    std::int16_t Speed = 0;
    bool operator==(const Motion&) const = default;
  };

  bool DeviceMove(Directions direction, float angle) override;
  bool DeviceMoveBoth(float panAngle, float tiltAngle) override;
  /// Closes the connection.
  Variant DeviceDisconnect() override;
  /// Leaves the connection open, unlike `PTZDevice`'s.
  void Device2Disconnect() override { Connected_ = false; }
  std::span<const OptionRow> OptionTable() const override;

  bool TimedMove(double pan, double tilt, double zoom);
  void Send(std::uint8_t code, std::uint16_t speed);

  Platform Platform_;
  PropertyBag Options_;
  std::unique_ptr<Socket> Socket_;
  bool Connected_ = false;
  std::int32_t MoveInterval_ = 200;  // milliseconds
  float CurrentPan_ = 0;             // degrees
  float CurrentTilt_ = 0;            // degrees
  float CurrentZoom_ = 0;
  LastMotion<Motion> LastMove_;
  LastMotion<Motion> LastZoom_;
};

}  // namespace ptzd
