#pragma once

#include <string>
#include <string_view>

#include "drivers/kit/HTTPDriver.h"

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
class Grandeye final : public HTTPDriver {
 public:
  static const DriverData Data;

  explicit Grandeye(const Platform& platform = {});

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool ZoomBy(Zooms direction, float amount) override;
  void QueryPosition() override;

  std::string QueriedView() const;
  bool SendCommand(std::string_view command);
};

}  // namespace ptzd
