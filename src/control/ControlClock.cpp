#include "control/ControlClock.h"

#include <algorithm>

namespace ptzd {

namespace {

// The system's clock wakes more exactly than a condition does, so the end of a wait is left to it, in slices
// that a stop can wait for.
constexpr std::chrono::milliseconds ExactEnd{20}, Slice{1};

}  // namespace

void ControlClock::SleepUntil(TimePoint deadline) {
  if (Begins_) Begins_();
  std::unique_lock lock(Mutex_);
  Slept_ = true;
  Changed_.wait_until(lock, deadline - ExactEnd, [this] { return Cut_; });
  while (!Cut_) {
    lock.unlock();
    const auto now = Clock_.Now();
    Clock_.SleepUntil(std::min(deadline, now + Slice));
    lock.lock();
    if (now + Slice >= deadline) break;
  }
  WasCut_ = WasCut_ || (Cut_ && Clock_.Now() < deadline);
}

void ControlClock::Cut() {
  const std::lock_guard lock(Mutex_);
  Cut_ = true;
  Changed_.notify_all();
}

void ControlClock::Restore() {
  const std::lock_guard lock(Mutex_);
  Cut_ = Slept_ = WasCut_ = false;
}

bool ControlClock::Slept() const {
  const std::lock_guard lock(Mutex_);
  return Slept_;
}

bool ControlClock::WasCut() const {
  const std::lock_guard lock(Mutex_);
  return WasCut_;
}

}  // namespace ptzd
