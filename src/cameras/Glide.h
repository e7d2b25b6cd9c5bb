#pragma once

#include <ptzd/CameraControl.h>

#include <utility>

namespace ptzd {

/// Takes a head to a place by continuous motion, until it is near or past. The speeds of both axes are such
/// that they get there together.
class Glide {
 public:
  /// `speed` is that of the axis with the longer way, in the driver's own scale.
  Glide(float pan, float tilt, float speed) : Pan_(pan), Tilt_(tilt), Speed_(speed) {}

  /// Works out how to go on from a position. Whether `Speeds` are other ones than before.
  bool Aim(const CameraPosition& at);
  /// Both axes are near, or past.
  bool IsOver() const { return Signs_ == std::pair(0, 0); }
  const DriveSpeeds::Head& Speeds() const { return Speeds_; }

 private:
  const float Pan_, Tilt_, Speed_;
  std::pair<int, int> Signs_{0, 0};  ///< which way each axis goes; 0: not any more
  bool IsFirst_ = true;
  DriveSpeeds::Head Speeds_;
};

}  // namespace ptzd
