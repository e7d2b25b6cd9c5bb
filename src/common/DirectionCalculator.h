#pragma once

#include <cstdint>

namespace ptzd {

/// One of the eight directions (up 1, down 2, left 4, right 8 and their combinations), or 0 for none, that
/// comes nearest to a speed given per axis. Pan is positive to the right, tilt upwards. `amount` receives the
/// speed in that direction, in the scale of the arguments. Without `allowDiagonals` the faster axis decides,
/// pan when they are equal; with it a diagonal is chosen unless one axis is at least 2.3 times the other.
std::int32_t CalculateDirection(float pan, float tilt, bool allowDiagonals, float& amount);

}  // namespace ptzd
