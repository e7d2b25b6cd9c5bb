#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/Simulator.h"
#include "simulators/engine/Terminal.h"

namespace ptzsim {

enum class PelcoProtocol { D, P, Both };

/// Pelco receivers on one RS-485 line: they listen to frames of Pelco-D and Pelco-P with their address, never
/// answer, and turn at the documented speeds of a dome (80 degrees per second of pan and 40 of tilt at speed
/// 63, 150 in turbo), in proportion below.
///
/// A frame for an address that nobody on the line has is a violation: nothing else hangs on it. To recall a
/// preset that was never stored is none.
class Pelco : public Simulator {
 public:
  struct Options {
    std::vector<int> Addresses = {1};  ///< 1 to 255, each once
    PelcoProtocol Protocol = PelcoProtocol::Both;
    Terminal::Options Line{};
    ClockKind Clock = ClockKind::Real;
  };

  /// Pan from -180 up to 180 and tilt from -90 to 90 degrees; zoom (tele is up), focus (far is up) and iris
  /// (open is up) from 0 to 1000.
  struct Pose {
    double Pan, Tilt, Zoom, Focus, Iris;
  };
  struct ReceiverState {
    Pose At;
    bool Moving;
    int AutoFocus, AutoIris;  ///< as last told: 0 automatic, 1 on, 2 off
    std::map<int, Pose> Presets;
  };

  /// Throws std::invalid_argument for addresses that cannot be, std::runtime_error when there is no line.
  explicit Pelco(const Options& options);
  ~Pelco() override;

  std::vector<std::string> Addresses() const override { return {Line_.Path()}; }
  nlohmann::json State() const override;
  /// Throws std::out_of_range for an address that is not there.
  ReceiverState Receiver(int address = 1) const;
  Terminal& Line() { return Line_; }
  static const Make AtShell;

 private:
  struct Head;
  struct Frame;
  struct Drive;
  static const Drive Drives[];

  static std::map<int, Head> MakeHeads(const Clock& clock, const std::vector<int>& addresses);
  std::optional<Message> Take(std::string& received);
  std::string Obey(const Frame& frame, std::string& meaning);
  static std::string ObeyExtended(Head& head, const Frame& frame, std::string& meaning);

  mutable std::mutex Mutex_;
  PelcoProtocol Protocol_;
  std::map<int, Head> Heads_;
  Terminal Line_;
};

}  // namespace ptzsim
