#include "common/Angles.h"

#include <cmath>

#include "common/Numbers.h"

namespace ptzd {

float WithinHalfTurn(float angle) {
  ToInt32(angle);  // an angle that is none, or that no camera means
  const double rest = std::remainder(angle, 360.0);
  return ToSingle(std::abs(rest) == 180 ? std::copysign(rest, angle) : rest);
}

}  // namespace ptzd
