#pragma once

#include <cstddef>
#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>

#include "simulators/engine/Faults.h"
#include "simulators/engine/Message.h"
#include "simulators/engine/RequestLog.h"

namespace ptzsim {

/// A serial line as a pseudo-terminal: the device's end, on a thread of its own from its construction to its
/// destruction. Whoever drives the device opens `Path` as a serial port.
///
/// In the log a connection is an opening of the port. The fault "refuse" takes the line away (the port hangs
/// up and its path is gone) and clearing it brings a fresh one back at the same path; "close-before-reply"
/// does both at once; "garbage" puts bytes into the driver's input.
class Terminal {
 public:
  struct Options {
    /// A symbolic link it makes, keeps and takes away; empty: one in a folder of its own below the system's
    /// folder for temporary files.
    std::string Path{};
    /// What the device listens at. Bytes that come at another speed, or with two stop bits, are a violation
    /// and do not reach it. 0: whatever the port is set to is right.
    int Baud = 0;
    /// Reads no faster than bytes travel at this speed (ten bits each), so that a fast writer fills the line.
    /// 0: at once.
    int PacedBaud = 0;
    /// Begins as a raw line. Otherwise as terminals are found, with echo, line editing and translated line
    /// ends, to see that whoever opens the port sets it right.
    bool Raw = true;
  };

  /// How the port is set at the moment.
  struct Settings {
    int Baud;  ///< 0 for a speed that is none of the usual ones
    int StopBits;
    bool Raw;  ///< neither echo nor line editing nor translation of what is written
  };

  /// `log` and `faults` must outlive it. Throws std::runtime_error when the line cannot be made.
  Terminal(MessageHandler handler, Options options, RequestLog& log, FaultSwitches& faults);
  ~Terminal();

  /// The symbolic link. Any thread, as all below.
  std::string Path() const;
  /// Nothing while the line has vanished.
  std::optional<Settings> Port() const;
  /// Puts bytes into the driver's input without waiting for room; returns how many it took. Throws
  /// std::runtime_error while the line has vanished.
  std::size_t Push(const std::string& bytes);

  nlohmann::json State() const;

 private:
  class Implementation;
  std::unique_ptr<Implementation> Implementation_;
};

}  // namespace ptzsim
