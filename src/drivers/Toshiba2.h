#pragma once

#include <string_view>

#include "drivers/kit/HTTPDriver.h"

namespace ptzd {

/// Toshiba IK-WB15 and IK-WB21 network cameras (`QVPTZ.Toshiba2`), over HTTP. They are moved by storing a
/// position in their preset 64 and recalling it, so what was stored there is lost.
///
/// Options: Address.
///
/// `Connect` answers False without an address and where the camera refuses or does not answer; it raises 6
/// where the camera tells a position beyond 32 bits of degrees.
///
/// Positions are whole degrees, ties to even. No limits are kept here: pan -175 and tilt 30 are the camera's
/// 0, in steps of 1/22.04571429 and 1/21.80833333 degree; targets beyond 32 bits raise 6. The camera is asked
/// for its position on connecting, from then on it is the one last sent, whatever the camera answered; moves
/// answer False always.
///
/// There is no iris, focus, home or preset.
class Toshiba2 final : public HTTPDriver {
 public:
  static const DriverData Data;

  explicit Toshiba2(const Platform& platform = {});

 private:
  bool Open() override;
  bool GoTo(HeadPosition target) override;
  bool ZoomBy(Zooms direction, float amount) override;
  void TakePlace(float pan, float tilt) override;

  void Read(std::string_view reply);
};

}  // namespace ptzd
