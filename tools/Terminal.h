#pragma once

#include <chrono>
#include <optional>
#include <stdexcept>

#include "Keys.h"

namespace ptzctl {

/// There is no terminal that a screen can be shown on; the text says why.
class NoTerminal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The whole screen of the terminal, through curses, until this dies: then the terminal is as it was. Raises
/// `NoTerminal`.
class Terminal {
 public:
  Terminal();
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  /// What was typed, waited for at most so long. A window that was resized ends the wait.
  std::optional<KeyEvent> Read(std::chrono::milliseconds longest);
  /// Whether it tells presses, repeats and releases apart.
  bool TellsReleases() const { return TellsReleases_; }
  /// Whether it is still there.
  bool IsThere() const;
  /// As it was before; for a process that is about to end, where this is not going to die.
  static void Restore();
  /// Draws all anew, over what others have written.
  void Redraw();

 private:
  std::optional<KeyEvent> ReadSequence();

  static inline bool TellsReleases_ = false;
};

}  // namespace ptzctl
