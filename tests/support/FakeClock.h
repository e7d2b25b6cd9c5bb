#pragma once

#include <ptzd/Clock.h>

namespace ptzd::test {

/// A clock that stands still until it is told, or until someone sleeps.
class FakeClock : public Clock {
 public:
  explicit FakeClock(std::int64_t milliseconds = 100000) : Time_(std::chrono::milliseconds(milliseconds)) {}

  std::int32_t TickCount() override {
    const auto since = std::chrono::duration_cast<std::chrono::milliseconds>(Time_.time_since_epoch());
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(since.count()));
  }
  TimePoint Now() override { return Time_; }
  void SleepUntil(TimePoint deadline) override {
    if (deadline > Time_) Time_ = deadline;
  }
  void Advance(std::int64_t milliseconds) { Time_ += std::chrono::milliseconds(milliseconds); }

 private:
  TimePoint Time_;
};

}  // namespace ptzd::test
