#pragma once

#include <ptzd/Export.h>

namespace ptzd {

/// Continuous motion until told otherwise. Speeds are signed, in the driver's own scale; 0 stops the axis.
/// On every make `ContinuousMove(0, 0)` ends the motion of the head and `ContinuousZoom(0)` that of the zoom.
/// Called on the interface itself, every member does nothing.
class PTZD_API PTZContinuousControl {
 public:
  virtual ~PTZContinuousControl() = default;

  virtual void ContinuousMove(float pan, float tilt);
  virtual void ContinuousZoom(float amount);
  /// Both of these, head first; Sony's sends nothing, on purpose.
  virtual void StopContinuous();
};

}  // namespace ptzd
