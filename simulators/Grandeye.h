#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Grandeye camera with virtual heads in one fixed picture: ptz.cgi, which counts them from 1 (camera=1
/// when none is named), and getparam.cgi, which counts them from 0. Commands are answered with 204.
///
/// The camera's pan grows to the left and has no end: any whole angle is taken and wrapped. Its tilt is 0 to
/// 90, and 45 is level. Its zoom is a measure of how wide the picture is, 1 (closest) to 13787, so that a
/// negative rzoom zooms in.
class Grandeye : public Simulator {
 public:
  struct Options {
    int Views = 3;  ///< 1 to 4
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees, pan to the right (-180 to 180) and tilt upwards (-45 to 45); zoom as the camera tells it.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
  };

  /// Throws std::invalid_argument for a number of views that no such camera has.
  explicit Grandeye(Options options);
  ~Grandeye() override;

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// Camera 1, 2, ...; throws std::out_of_range for one that is not there.
  HeadState Head(int camera = 1) const;
  static const Make AtShell;

 private:
  struct View;
  friend struct GrandeyeRules;

  HTTPReply Answer(const Request& request);
  HTTPReply Control(const Query& query);
  HTTPReply Tell(const Query& query) const;

  mutable std::mutex Mutex_;
  std::vector<View> Views_;
  HTTPServer Server_;
};

}  // namespace ptzsim
