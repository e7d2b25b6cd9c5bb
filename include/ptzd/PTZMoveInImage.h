#pragma once

#include <cstdint>

#include <ptzd/Export.h>

namespace ptzd {

/// Centres the camera on a point of the picture. No driver of this library implements it; drivers outside
/// may, and announce it by `CapabilityMoveInImage`.
class PTZD_API PTZMoveInImage {
 public:
  virtual ~PTZMoveInImage() = default;

  /// The point (`x`, `y`) of a picture of `width` by `height` pixels.
  virtual void MoveInImage(std::int32_t x, std::int32_t y, std::int32_t width = 0, std::int32_t height = 0);
};

}  // namespace ptzd
