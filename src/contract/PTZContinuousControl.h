#pragma once

namespace ptzd {

/// Continuous motion until told otherwise. Speeds are signed, in the driver's own scale; 0 stops the axis.
/// Called on the interface itself, every member does nothing.
class PTZContinuousControl {
 public:
  virtual ~PTZContinuousControl() = default;

  virtual void ContinuousMove(float pan, float tilt);
  virtual void ContinuousZoom(float amount);
  virtual void StopContinuous();
};

}  // namespace ptzd
