#pragma once

#include <ptzd/Clock.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>

namespace ptzd {

/// The clock of a driver under control: its waits can be cut short from another thread.
class ControlClock final : public Clock {
 public:
  explicit ControlClock(Clock& clock) : Clock_(clock) {}

  std::int32_t TickCount() override { return Clock_.TickCount(); }
  TimePoint Now() override { return Clock_.Now(); }
  /// Returns early when it is cut.
  void SleepUntil(TimePoint deadline) override;
  /// `begins` is called before each wait, on the thread that waits. Not while one is under way.
  void WhenSleeping(std::function<void()> begins) { Begins_ = std::move(begins); }

  /// Ends the wait under way, and every later one at once until `Restore`.
  void Cut();
  /// Waits are whole again.
  void Restore();

  /// Whether anything was waited for since `Restore`, and whether that was cut short.
  bool Slept() const;
  bool WasCut() const;

 private:
  Clock& Clock_;
  std::function<void()> Begins_;
  mutable std::mutex Mutex_;
  std::condition_variable Changed_;
  bool Cut_ = false, Slept_ = false, WasCut_ = false;
};

}  // namespace ptzd
