#pragma once

#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Toshiba IK-WB01 and IK-WB11 network cameras (`QVPTZ.Toshiba`), which turn to the points of a grid, over
/// HTTP.
///
/// Options: Address.
///
/// `Connect` answers False without an address and else True, also where the camera does not answer.
///
/// A point is 7 degrees of pan (1/0.1429) or 5.4 degrees of tilt (1/0.1852) from the next: 17 across, from
/// -56 to 56 degrees, and 11 down, from 5 to -49. Moves go to the nearest point and end at the edge of the
/// grid; those of more than 16 bits of points raise 6. The camera is asked for its position on connecting,
/// from then on it is that of the last move it took; until it tells one it is pan -77 and tilt 21.2, off the
/// grid.
///
/// There is no zoom, iris, focus, home or preset.
class Toshiba final : public HTTPDriver {
 public:
  static const DriverData Data;

  explicit Toshiba(const Platform& platform = {});

  float Pan() override;
  float Tilt() override;

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool StepBy(double pan, double tilt) override;
  void QueryPosition() override;
  void TakePlace(float pan, float tilt) override;

  bool GoToPoint(const HeadPosition& target);
};

}  // namespace ptzd
