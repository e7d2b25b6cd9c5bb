#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/PTZDevice.h>
#include "drivers/kit/HTTPDriver.h"
#include "drivers/kit/PositionAge.h"

namespace ptzd {

/// Grandeye cameras (`QVPTZ.Grandeye`), whose heads are views of one fixed picture, over their HTTP
/// interface.
///
/// Options: Address; Port, the view, 1 and up (0, the default: the only or first one).
///
/// `Connect` asks for the position, and answers True also where nobody tells it or its numbers do not fit. It
/// answers False without an address and raises 13 or 6 for a Port that is no view's number, and nothing for
/// the camera's sake.
///
/// Moves are absolute and in whole degrees: tilt is clamped to -45 to 45, pan goes around. `MoveTo` answers
/// False on purpose, also where the view moved. Zoom moves in fixed steps and answers True while connected.
/// There is no iris, focus, home or preset.
///
/// The position is read at most every 5 seconds, and anew after a zoom or `SetPanTilt`; a reading that fails
/// keeps it. `Pan` and `Tilt` need no connection. They raise 6 where the camera tells a number that does not
/// fit, as moves do, which read the position first; targets that do not fit raise 6 after that.
class Grandeye final : public PTZDevice, private HTTPDriver {
 public:
  static const DriverData Data;

  explicit Grandeye(const Platform& platform = {});

  ptzd::Capabilities Capabilities() override;
  [[nodiscard]] bool Connect(std::span<const std::uint8_t> options) override;
  bool Connected() override { return Connected_; }
  float Pan() override;
  float Tilt() override;

  bool Move(Directions direction, float angle = 5) override;
  bool MoveTo(float pan, float tilt) override;
  bool MoveBoth(float panAngle, float tiltAngle) override;
  bool Zoom(Zooms zoomLevel) override;
  /// Has the position read anew before it is used next; looks at no argument.
  void SetPanTilt(float pan, float tilt) override;
  Variant Disconnect() override;

 private:
  struct Position {
    float Pan = 0, Tilt = 0;  // degrees
    float Zoom = 0;           // steps of the camera, in quarters

    void Read(std::string_view reply, const std::string& view);
  };

  bool SendCommand(std::string_view command);
  bool AbsoluteMove(double targetPan, double targetTilt);
  void RefreshPosition();
  void QueryPosition();
  std::string QueriedView() const;

  Position Position_;
  PositionAge PositionAge_;
};

}  // namespace ptzd
