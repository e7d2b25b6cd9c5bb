#pragma once

namespace ptzd {

/// The same direction from -180 to 180 degrees; half a turn stays on its side. Raises 6 for NaN, infinity and
/// angles beyond 32 bits.
float WithinHalfTurn(float angle);

}  // namespace ptzd
