#pragma once

#include <functional>
#include <memory>

#include <ptzd/Export.h>

namespace ptzd {

/// While it lives, what usually ends the process is told instead: INT, TERM, HUP, QUIT, PIPE, ALRM,
/// VTALRM, PROF, USR1, USR2, and XCPU and XFSZ, which are limits of the process, and TSTP, since a process
/// that is suspended could stop no camera; on Windows Ctrl-C, Ctrl-Break, and the closing of the console,
/// after which the system leaves a few seconds. PIPE is told as soon as the pipe that is the standard output
/// has no reader left, where the system can tell that before something is written. For tools that must stop a
/// camera first; the library makes none of its own accord. One may live at a time. Signals that are ignored
/// stay ignored, all but PIPE.
class PTZD_API TerminationSignals {
 public:
  /// `told` is called on a thread of its own, once for each, with the signal's number (SIGINT, ...).
  explicit TerminationSignals(std::function<void(int signal)> told);
  /// From here on they have their usual effect again. Waits for a call of `told` under way.
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

 private:
  class Watch;
  std::unique_ptr<Watch> Watch_;
};

}  // namespace ptzd
