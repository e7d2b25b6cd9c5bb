#include "common/DirectionCalculator.h"

#include <cmath>

namespace ptzd {

namespace {
constexpr std::int32_t Up = 1, Down = 2, Left = 4, Right = 8;
constexpr double DiagonalFactor = 2.3;   // an axis this many times the other stands alone
constexpr double DiagonalDivisor = 1.5;  // the sum of both axes, brought to the scale of one
}  // namespace

std::int32_t CalculateDirection(float pan, float tilt, bool allowDiagonals, float& amount) {
  amount = 0;
  if (pan == 0 && tilt == 0) return 0;

  const double factor = allowDiagonals ? DiagonalFactor : 1;
  const float panSize = std::fabs(pan), tiltSize = std::fabs(tilt);
  const std::int32_t panBit = pan < 0 ? Left : Right;
  const std::int32_t tiltBit = tilt < 0 ? Down : Up;

  if (tiltSize <= static_cast<float>(panSize / factor)) {
    amount = panSize;
    return panBit;
  }
  if (static_cast<float>(tiltSize / factor) >= panSize) {
    amount = tiltSize;
    return tiltBit;
  }
  amount = static_cast<float>((panSize + tiltSize) / DiagonalDivisor);
  return panBit | tiltBit;
}

}  // namespace ptzd
