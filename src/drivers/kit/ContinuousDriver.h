#pragma once

#include <ptzd/PTZContinuousControl.h>

namespace ptzd {

/// Base of a driver whose camera is stopped by the speed 0, the head before the zoom.
class ContinuousDriver : public PTZContinuousControl {
 public:
  void StopContinuous() override {
    ContinuousMove(0, 0);
    ContinuousZoom(0);
  }
};

}  // namespace ptzd
