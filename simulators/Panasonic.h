#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Panasonic BL-C, BB-HCM or BB-HCE camera: Get for model, pan and tilt, Set for zoom and focus,
/// nphControlCamera for brightness and clicks into the picture and, on all but the oldest, nphPtzf with
/// angles.
///
/// Angles beyond the ends are refused; a click beyond the picture is followed as far as the head goes. What
/// the model lacks (zoom, focus, brightness) is answered with "Return:-1" and status 200 and counts no
/// violation: hosts send it all the same.
class Panasonic : public Simulator {
 public:
  /// What the camera tells of how it is mounted, which settles how far it tilts.
  enum class Mount {
    NotTold,  ///< nothing: the ends are those of the model
    Ceiling,  ///< setup type 0, tilts up to 90 degrees
    Desk,     ///< setup type 1, tilts down to -120 degrees
  };

  struct Options {
    std::string Model = "BB-HCM581A";  ///< one of `Models`
    std::string Firmware = "2.32";     ///< up to 1.22 without nphPtzf
    Mount Mounted = Mount::NotTold;
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan (positive to the right) and tilt (positive upwards) and how far they go, 0 (wide, near)
  /// to 1000 for zoom and focus, 1 to 9 for brightness, whose default is 5.
  struct HeadState {
    double Pan, Tilt, Zoom, Focus;
    bool AutoFocus;
    int Brightness;
    bool Moving;
    Motion::Range PanEnds, TiltEnds;
  };

  /// The names that cameras tell, two of them with the letter of a market at the end. BL-C10 and BL-C30 have
  /// no nphPtzf whatever their firmware.
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model or a firmware that is not a number.
  explicit Panasonic(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell;

 private:
  struct Model;
  friend struct PanasonicPages;

  HTTPReply Answer(const Request& request);

  mutable std::mutex Mutex_;
  const Model& Model_;
  const std::string Firmware_;
  const Mount Mount_;
  const unsigned Abilities_;
  Motion Pan_, Tilt_;  // hundredths of a degree; pan counts to the left
  Motion Zoom_, Focus_;
  bool AutoFocus_ = false;
  int Brightness_ = 7;
  HTTPServer Server_;
};

}  // namespace ptzsim
