#include "Interrupt.h"

#include <algorithm>
#include <csignal>
#include <thread>

namespace ptzctl {

namespace {

volatile std::sig_atomic_t Caught = 0;

constexpr int Signals[] = {
    SIGINT, SIGTERM,
#ifdef SIGHUP
    SIGHUP,  // the terminal was closed
#endif
#ifdef SIGBREAK
    SIGBREAK,  // the console was closed
#endif
};

constexpr std::chrono::milliseconds Slice(20);

}  // namespace

extern "C" {
static void OnSignal(int number) {
  std::signal(number, OnSignal);  // some systems forget it at the first
  Caught = 1;
}
}

void CatchInterrupts() {
  for (const int number : Signals)
    if (std::signal(number, OnSignal) == SIG_IGN) std::signal(number, SIG_IGN);
}

void ReleaseInterrupts() {
  for (const int number : Signals)
    if (std::signal(number, SIG_DFL) == SIG_IGN) std::signal(number, SIG_IGN);
}

bool Interrupted() { return Caught != 0; }

bool SleepUnlessInterrupted(std::chrono::milliseconds time) {
  const auto deadline = std::chrono::steady_clock::now() + time;
  while (!Interrupted()) {
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return true;
    std::this_thread::sleep_until(std::min(deadline, now + Slice));
  }
  return false;
}

}  // namespace ptzctl
