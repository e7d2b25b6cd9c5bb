#pragma once

#include <atomic>
#include <chrono>

namespace ptzsim {

enum class ClockKind {
  Real,    ///< runs by itself, as `ptzsim` needs it
  Manual,  ///< stands still until `Advance`, so that a test decides how far a head has turned
};

/// The time a simulated head moves by. It does not govern the delays on the wire, which are always real.
class Clock {
 public:
  explicit Clock(ClockKind kind = ClockKind::Real);

  /// Time since the clock was made. Any thread.
  std::chrono::milliseconds Now() const;

  /// Moves a manual clock on. Any thread. Throws std::logic_error on a real clock.
  void Advance(std::chrono::milliseconds time);

 private:
  ClockKind Kind_;
  std::chrono::steady_clock::time_point Start_;
  std::atomic<std::chrono::milliseconds::rep> Manual_{0};
};

}  // namespace ptzsim
