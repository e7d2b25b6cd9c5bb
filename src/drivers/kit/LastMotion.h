#pragma once

#include <optional>

namespace ptzd {

/// The continuous motion that a driver sent last, as a command's text or whatever else tells motions apart.
template <typename Motion>
class LastMotion {
 public:
  /// Whether a motion is to be sent; it is the last one from here on. A repeat is not sent, a stop always is.
  bool Replace(const Motion& motion, bool isStop) {
    if (Last_ == motion && !isStop) return false;
    Last_ = motion;
    return true;
  }

 private:
  std::optional<Motion> Last_;
};

}  // namespace ptzd
