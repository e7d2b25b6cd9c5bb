#include <ptzd/TerminationSignals.h>

#include <csignal>
#include <mutex>
#include <utility>

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

struct Listener {
  std::mutex Mutex;
  std::function<void(int)> Told;
};

// Never destroyed: the system calls on a thread of its own that nobody ends.
Listener& TheListener() {
  static auto& listener = *new Listener;
  return listener;
}

BOOL WINAPI OnConsoleEvent(DWORD event) {
  {
    auto& listener = TheListener();
    const std::lock_guard lock(listener.Mutex);
    if (!listener.Told) return FALSE;
    listener.Told(event == CTRL_C_EVENT ? SIGINT : event == CTRL_BREAK_EVENT ? SIGBREAK : SIGTERM);
  }
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) return TRUE;
  // Of the others the process ends as soon as this returns; the system waits some seconds at most.
  Sleep(INFINITE);
  return TRUE;
}

}  // namespace

class TerminationSignals::Watch {
 public:
  explicit Watch(std::function<void(int)> told) {
    {
      const std::lock_guard lock(TheListener().Mutex);
      TheListener().Told = std::move(told);
    }
    SetConsoleCtrlHandler(OnConsoleEvent, TRUE);
  }
  ~Watch() {
    SetConsoleCtrlHandler(OnConsoleEvent, FALSE);
    const std::lock_guard lock(TheListener().Mutex);
    TheListener().Told = nullptr;
  }
};

TerminationSignals::TerminationSignals(std::function<void(int signal)> told)
    : Watch_(std::make_unique<Watch>(std::move(told))) {}

TerminationSignals::~TerminationSignals() = default;

}  // namespace ptzd
