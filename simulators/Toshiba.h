#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Toshiba camera. IK-WB01 and IK-WB11 turn to the points of a grid, 17 across and 11 down; they tell a
/// point counted from 0 and are commanded with 3 added to both of its numbers. IK-WB15 and IK-WB21 are turned
/// by storing a position in one of 64 presets and recalling it; they begin with the presets 3 and 64. Their
/// preset page is told 256 and the preset's number to recall it, 512 to store the place that the head is at
/// and 768 to delete it.
///
/// To store a position beyond the ends, which hosts that pass on any angle do, is refused and counts no
/// violation, nor does recalling or deleting a preset nobody stored.
class Toshiba : public Simulator {
 public:
  struct Options {
    std::string Model = "IK-WB01";  ///< one of `Models`
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan (right is positive) and tilt (up is positive).
  struct HeadState {
    double Pan, Tilt;
    double Zoom;  ///< 0 to 1000; the cameras with a grid have none, theirs stays
    bool Moving;
    std::map<int, std::string> Presets;  ///< the names of those that are stored
  };

  /// IK-WB01, IK-WB11, IK-WB15 and IK-WB21.
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model.
  explicit Toshiba(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell;

 private:
  struct Model;
  struct Preset {
    std::string Name;
    double Pan, Tilt;
  };
  friend struct ToshibaPages;

  HTTPReply Answer(const Request& request);
  bool Has(long long pan, long long tilt) const;  // camera units
  HeadState Now() const;

  mutable std::mutex Mutex_;
  const Model& Model_;
  Motion Pan_, Tilt_, Zoom_;
  std::map<int, Preset> Presets_;
  HTTPServer Server_;
};

}  // namespace ptzsim
