#pragma once

#include <cstdint>

namespace ptzd {

/// Milliseconds from tick count `start` to tick count `now`, of which the low 31 bits count; one wrap of the
/// 31-bit counter is allowed for.
std::int32_t TimeDiff(std::int32_t start, std::int32_t now);

/// The same, up to the system's present tick count.
std::int32_t TimeDiff(std::int32_t start);

}  // namespace ptzd
