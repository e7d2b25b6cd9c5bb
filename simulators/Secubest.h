#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/Motion.h"
#include "simulators/engine/Simulator.h"
#include "simulators/engine/TCPServer.h"

namespace ptzsim {

/// A Secubest unit: it takes framed messages on raw TCP connections and never answers.
///
/// Units take a speed in the byte order their commands come in, and the orders differ: pan and tilt low byte
/// first, zoom high byte first, and zoom at the fixed speed 200 of a timed move low byte first. Everything
/// else is a violation. Since zoom speeds fit into one byte, no speed can be read both ways.
class Secubest : public Simulator {
 public:
  struct Options {
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan (-180 to 180) and tilt (-90 to 90), 0 to 1000 for zoom.
  struct UnitState {
    double Pan, Tilt, Zoom;
    bool Moving;
  };

  explicit Secubest(Options options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  UnitState Unit() const;
  /// Closes all connections from the unit's side.
  void CloseConnections(bool reset = false) { Server_.CloseConnections(reset); }
  static const Make AtShell;

 private:
  std::optional<Message> Take(std::string& received);
  std::string Obey(const std::string& frame, std::string& meaning);

  mutable std::mutex Mutex_;
  Motion Pan_, Tilt_, Zoom_;
  TCPServer Server_;
};

}  // namespace ptzsim
