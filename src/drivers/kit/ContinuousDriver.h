#pragma once

#include <ptzd/DriverData.h>
#include <ptzd/PTZContinuousControl.h>

namespace ptzd {

/// Base of a driver with continuous motion, which ends by the speed 0 of each, the head's before the zoom's.
class ContinuousDriver : public PTZContinuousControl {
 public:
  void StopContinuous() final {
    if (!StopsBySpeedZero_) return;
    ContinuousMove(0, 0);
    ContinuousZoom(0);
  }

 protected:
  explicit ContinuousDriver(const DriverData& data) : StopsBySpeedZero_(data.StopsBySpeedZero) {}

 private:
  bool StopsBySpeedZero_;
};

}  // namespace ptzd
