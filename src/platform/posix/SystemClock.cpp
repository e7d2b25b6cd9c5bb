#include <sys/prctl.h>
#include <time.h>

#include <cerrno>

#include <ptzd/Clock.h>

namespace ptzd {

namespace {

// std::chrono::steady_clock counts CLOCK_MONOTONIC, so a deadline goes to the system as it stands.
class MonotonicClock final : public Clock {
 public:
  std::int32_t TickCount() override {
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Now().time_since_epoch());
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(elapsed.count()));
  }

  TimePoint Now() override { return std::chrono::steady_clock::now(); }

  void SleepUntil(TimePoint deadline) override {
    const auto since = deadline.time_since_epoch();
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(since);
    timespec until{};
    until.tv_sec = seconds.count();
    until.tv_nsec = std::chrono::duration_cast<std::chrono::nanoseconds>(since - seconds).count();
    // A motor runs on until its stop: the 50 microseconds by which the system may delay a thread are too
    // many.
    const int slack = prctl(PR_GET_TIMERSLACK);
    prctl(PR_SET_TIMERSLACK, 1UL);
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) == EINTR) {
    }
    prctl(PR_SET_TIMERSLACK, static_cast<unsigned long>(slack));
  }
};

}  // namespace

Clock& SystemClock() {
  static MonotonicClock clock;
  return clock;
}

}  // namespace ptzd
