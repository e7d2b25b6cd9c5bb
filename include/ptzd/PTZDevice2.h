#pragma once

#include <cstdint>
#include <span>

#include <ptzd/Enumerations.h>
#include <ptzd/Export.h>

namespace ptzd {

constexpr float ZoomStepAmount = 0.25F;  ///< of a zoom step, in the driver's own scale

/// The extended interface with absolute zoom. Members are as those of `PTZDevice`, with which they share the
/// driver's state, but moves answer nothing. Zoom positions are in the driver's own scale, 0 being the
/// widest.
class PTZD_API PTZDevice2 {
 public:
  virtual ~PTZDevice2() = default;

  virtual ptzd::Capabilities Capabilities();
  [[nodiscard]] virtual bool Connect(std::span<const std::uint8_t> options);
  virtual bool Connected();
  virtual float Pan();
  virtual float Tilt();
  virtual float ZoomLevel();

  virtual void Move(Directions direction, float angle = 5);
  virtual void MoveBoth(float panAngle, float tiltAngle);
  virtual void MoveTo(float pan, float tilt, float zoom);
  virtual void Zoom(Zooms direction, float amount = ZoomStepAmount);
  virtual void ZoomTo(float zoom);
  virtual void Disconnect();
};

}  // namespace ptzd
