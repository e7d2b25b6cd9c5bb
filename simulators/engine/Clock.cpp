#include "simulators/engine/Clock.h"

#include <stdexcept>

namespace ptzsim {

Clock::Clock(ClockKind kind) : Kind_(kind), Start_(std::chrono::steady_clock::now()) {}

std::chrono::milliseconds Clock::Now() const {
  if (Kind_ == ClockKind::Manual) return std::chrono::milliseconds(Manual_.load());
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - Start_);
}

void Clock::Advance(std::chrono::milliseconds time) {
  if (Kind_ != ClockKind::Manual) throw std::logic_error("a real clock cannot be advanced");
  Manual_ += time.count();
}

}  // namespace ptzsim
