#include "cameras/Glide.h"

#include <algorithm>
#include <cmath>

namespace ptzd {

namespace {

/// How near to its target a head is sent, in degrees; the rest of the way it goes by itself.
constexpr float Near = 1;

/// An axis that has passed its target, or is near, rests from then on.
int SignOf(float way) { return std::abs(way) <= Near ? 0 : way > 0 ? 1 : -1; }

}  // namespace

bool Glide::Aim(const CameraPosition& at) {
  const auto pan = Pan_ - at.Pan, tilt = Tilt_ - at.Tilt;
  const std::pair signs{SignOf(pan), SignOf(tilt)};
  const auto next = IsFirst_ ? signs
                             : std::pair{signs.first == Signs_.first ? signs.first : 0,
                                         signs.second == Signs_.second ? signs.second : 0};
  const bool isTurned = IsFirst_ || next != Signs_;
  IsFirst_ = false;
  Signs_ = next;
  const auto longest = std::max(std::abs(pan), std::abs(tilt));
  Speeds_ = {next.first == 0 ? 0 : Speed_ * pan / longest, next.second == 0 ? 0 : Speed_ * tilt / longest};
  return isTurned;
}

}  // namespace ptzd
