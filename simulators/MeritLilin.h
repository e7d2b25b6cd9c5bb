#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Merit Lilin speed dome, or a video server with several (camid=1, 2, ...; the first when none is named):
/// the pages control, ptzpreset and camera, and the start page "/". Commands are answered with "OK".
///
/// Camera units are whole degrees, with pan from 0 to 359 and tilt downwards from -30 to 90, and a zoom
/// factor from 1 to 36. Absolute tilt and zoom and the speeds of continuous motions stop at their ends,
/// since hosts run over them; 8 is the fastest. A negative rzoom zooms in, and a positive rtilt turns up.
///
/// To recall a preset nobody saved is acknowledged and does nothing.
class MeritLilin : public Simulator {
 public:
  struct Options {
    int Cameras = 2;  ///< 1 to 4
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees, pan to the right from -180 (where the camera says 0) and tilt upwards; zoom as a factor; iris
  /// and focus in the steps of a command, to open and to far.
  struct HeadState {
    double Pan, Tilt, Zoom;
    int Iris, Focus;
    bool AutoIris, AutoFocus, Moving;
    std::map<int, std::array<double, 3>> Presets;  ///< pan, tilt and zoom in camera units by number
  };

  /// Throws std::invalid_argument for a number of cameras that no such server has.
  explicit MeritLilin(Options options);
  ~MeritLilin() override;

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// Camera 1, 2, ...; throws std::out_of_range for one that is not there.
  HeadState Head(int camera = 1) const;
  static const Make AtShell;

 private:
  struct Dome;
  friend struct MeritLilinRules;

  HTTPReply Answer(const Request& request);

  mutable std::mutex Mutex_;
  std::vector<Dome> Domes_;
  HTTPServer Server_;
};

}  // namespace ptzsim
