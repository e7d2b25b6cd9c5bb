#pragma once

#include <array>
#include <cstdint>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Vivotek pan-tilt camera of the older or the newer generation: sysinfo.cgi, camctrl.cgi and, on the newer
/// one, preset.cgi and recall.cgi with the presets "Main gate" and "Car park & ramp". It centres on the point
/// that is clicked, also on one beyond the picture.
///
/// To recall a preset nobody saved is refused and counts no violation, nor does saving one more than fits.
class Vivotek : public Simulator {
 public:
  struct Options {
    std::string Model = "PZ7132";  ///< one of `Models`
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan and tilt, 0 to 1000 for zoom.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
    std::vector<std::string> Presets;  ///< their names in the order of their slots
  };

  /// PT7135, PT31x and PZ61x are of the older generation, the others of the newer.
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model.
  explicit Vivotek(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell;

 private:
  struct Model;
  struct Preset {
    std::string Name;
    std::array<double, 3> Place;  // pan, tilt, zoom
  };
  friend struct VivotekPages;

  HTTPReply Answer(const Request& request);
  std::string Information() const;
  std::vector<Preset>::iterator Find(const std::string& name);

  mutable std::mutex Mutex_;
  const Model& Model_;
  Motion Pan_, Tilt_, Zoom_;
  std::vector<Preset> Presets_;
  HTTPServer Server_;
};

}  // namespace ptzsim
