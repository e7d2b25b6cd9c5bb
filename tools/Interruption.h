#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include <ptzd/TerminationSignals.h>

namespace ptzctl {

/// Raised where ptzctl is to end and nothing has to be stopped first: what is waited for is not needed.
class Interrupted {};

/// Whether ptzctl is to end before its work is done, by a signal. One lives as long as there is work.
class Interruption {
 public:
  Interruption();
  ~Interruption();

  /// Takes note of a signal, as if it had come.
  void Note(int signal);
  /// The first that came; 0 while there is none.
  int Signal() const;
  bool Came() const { return Signal() != 0; }
  /// Forgets this signal, so that the work goes on. False where it was another, or none.
  bool Forgive(int signal);
  /// Blocks for a time; returns early, and false, when interrupted.
  bool Sleep(std::chrono::milliseconds time) const;

  /// `stop` is called at each signal, on a thread of its own, and blocks until the camera is stopped or
  /// cannot be. Then the process ends by itself soon, even where its main thread hangs (in output that nobody
  /// takes).
  void OnSignal(std::function<void()> stop);

 private:
  void Come(int signal);

  mutable std::mutex Mutex_;
  mutable std::condition_variable Changed_;
  int Signal_ = 0;
  bool Ended_ = false;
  std::mutex Stopping_;  ///< is held while `Stop_` runs
  std::function<void()> Stop_;
  ptzd::TerminationSignals Signals_;
};

/// The exit code of a process that a signal ended.
constexpr int ExitCodeOf(int signal) { return 128 + signal; }

}  // namespace ptzctl
