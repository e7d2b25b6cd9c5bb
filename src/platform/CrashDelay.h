#pragma once

#include <chrono>

namespace ptzd {

/// While it lives, a crash of a thread (a bad access, an abort) ends the process only after a time, in which
/// the other threads go on: what they have promised, as that a camera stops, is kept. Then `last` is called,
/// on the thread that crashed, and should do next to nothing. One may live at a time.
class CrashDelay {
 public:
  CrashDelay(std::chrono::milliseconds time, void (*last)());
  ~CrashDelay();
  CrashDelay(const CrashDelay&) = delete;
  CrashDelay& operator=(const CrashDelay&) = delete;
};

}  // namespace ptzd
