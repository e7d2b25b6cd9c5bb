#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Panogenics camera with eight views, 1 to 4 in high resolution and 5 to 8 their twins in low resolution,
/// each with a place and presets of its own: ptz.cgi, listptz.cgi, the preset pages and the list of the
/// camera's parameters.
///
/// Camera units are whole degrees and a zoom from 0 to 500. Pan is told as 0 to 359 and taken from -180 to
/// 360; tilt is upwards and stops at -90 and 90, since hosts run over them.
///
/// To recall a preset nobody saved is refused and counts no violation.
class Panogenics : public Simulator {
 public:
  struct Options {
    bool Wrapped = true;  ///< replies stand in an HTML page; otherwise they are bare text
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  struct Preset {
    std::string Name;
    std::array<double, 3> Place;  ///< pan, tilt and zoom in camera units
  };
  /// Degrees, pan to the right (-180 to 180) and tilt upwards; zoom 0 to 500.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
    std::map<int, Preset> Presets;  ///< by index, 1 to 8
  };

  explicit Panogenics(Options options);
  ~Panogenics() override;

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// View 1 to 8; throws std::out_of_range for any other.
  HeadState Head(int view = 1) const;
  static const Make AtShell;

 private:
  struct View;
  friend struct PanogenicsRules;

  HTTPReply Answer(const Request& request);
  HTTPReply Page(const std::string& text) const;
  std::string ObeyPreset(View& view, const Query& query, bool saves, std::string& wrong);

  mutable std::mutex Mutex_;
  bool Wrapped_;
  std::vector<View> Views_;
  HTTPServer Server_;
};

}  // namespace ptzsim
