#include "common/TimeDiffMod.h"

#include <ptzd/Clock.h>
#include "common/Numbers.h"

namespace ptzd {

std::int32_t TimeDiff(std::int32_t start, std::int32_t now) {
  start &= 0x7FFFFFFF;
  now &= 0x7FFFFFFF;
  if (now >= start) return now - start;
  return ToInt32(2147483648.0 - start + now);
}

std::int32_t TimeDiff(std::int32_t start) { return TimeDiff(start, SystemClock().TickCount()); }

}  // namespace ptzd
