#include "platform/CrashDelay.h"

#include <signal.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstddef>

namespace ptzd {

namespace {

constexpr std::array Signals{SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

std::array<struct sigaction, Signals.size()> Usual;
timespec Time;
void (*Last)() = nullptr;

/// Another crash, also one in here, ends the process at once.
extern "C" void OnCrash(int number) {
  for (const int other : Signals) signal(other, SIG_DFL);
  auto left = Time;
  while (nanosleep(&left, &left) != 0) {
  }
  alarm(1);  // should it wait for what the crash has left behind
  Last();
  raise(number);
}

}  // namespace

CrashDelay::CrashDelay(std::chrono::milliseconds time, void (*last)()) {
  Time = {static_cast<time_t>(time.count() / 1000), static_cast<long>(time.count() % 1000 * 1000000)};
  Last = last;
  struct sigaction action {};
  action.sa_handler = OnCrash;
  action.sa_flags = SA_NODEFER;
  sigemptyset(&action.sa_mask);
  for (std::size_t i = 0; i < Signals.size(); ++i) sigaction(Signals[i], &action, &Usual[i]);
}

CrashDelay::~CrashDelay() {
  for (std::size_t i = 0; i < Signals.size(); ++i) sigaction(Signals[i], &Usual[i], nullptr);
}

}  // namespace ptzd
