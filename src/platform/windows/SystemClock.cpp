#include <algorithm>
#include <memory>

#include <ptzd/Clock.h>
#include "platform/windows/SystemHeaders.h"

#ifndef CREATE_WAITABLE_TIMER_HIGH_RESOLUTION
#define CREATE_WAITABLE_TIMER_HIGH_RESOLUTION 0x00000002
#endif

namespace ptzd {

namespace {

using namespace std::chrono_literals;

// A timer may come late by half a millisecond, so the last stretch is not slept.
constexpr auto LastStretch = 1ms;
constexpr Clock::TimePoint::duration LongestWait = 1h;

struct HandleCloser {
  void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, HandleCloser>;

/// The high-resolution timer where the system has it (Windows 10 of 2018 and later); the plain one keeps to
/// the system's tick, 15.6 ms unless some program asked for a shorter one.
Handle MakeTimer() {
  Handle timer(CreateWaitableTimerExW(nullptr, nullptr, CREATE_WAITABLE_TIMER_HIGH_RESOLUTION,
                                      TIMER_MODIFY_STATE | SYNCHRONIZE));
  if (!timer) timer.reset(CreateWaitableTimerExW(nullptr, nullptr, 0, TIMER_MODIFY_STATE | SYNCHRONIZE));
  return timer;
}

void WaitFor(HANDLE timer, Clock::TimePoint::duration time) {
  LARGE_INTEGER due;  // in units of 100 ns, negative: from now
  due.QuadPart = -std::chrono::duration_cast<std::chrono::nanoseconds>(time).count() / 100;
  if (timer != nullptr && SetWaitableTimer(timer, &due, 0, nullptr, nullptr, FALSE))
    WaitForSingleObject(timer, INFINITE);
  else
    Sleep(static_cast<DWORD>(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()));
}

class PerformanceClock final : public Clock {
 public:
  std::int32_t TickCount() override { return static_cast<std::int32_t>(GetTickCount()); }

  TimePoint Now() override { return std::chrono::steady_clock::now(); }

  void SleepUntil(TimePoint deadline) override {
    Handle timer;
    for (auto now = Now(); now < deadline; now = Now()) {
      const auto left = deadline - now;
      if (left <= LastStretch) {
        SwitchToThread();
        continue;
      }
      if (!timer) timer = MakeTimer();
      WaitFor(timer.get(), std::min(left - LastStretch, LongestWait));
    }
  }
};

}  // namespace

Clock& SystemClock() {
  static PerformanceClock clock;
  return clock;
}

}  // namespace ptzd
