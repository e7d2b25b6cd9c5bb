#pragma once

#include <array>
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

/// How an Elmo PTC-402C writes the numbers of its position.
enum class ElmoNumbers {
  Plain,      ///< "9275"
  Remarked,   ///< "9275 (0.0)", with the degrees or the zoom steps as a remark
  Bracketed,  ///< "pan (9275)"
};

/// An Elmo camera: the 200 series (ctrl and pmem, answered with "OK" or "NG"), the 400 series (set and list,
/// rows of KEY:VALUE) or the PTC-402C (exec and pget, which tells in XML). The first two begin with the
/// presets 2 and 5. Pan and tilt count from the left and the upper end; a value beyond them is a violation, a
/// zoom above the tele end is taken as that end.
///
/// To recall a preset nobody stored is refused and counts no violation, nor does the 200 series' control page
/// without parameters, which answers "NG".
class Elmo : public Simulator {
 public:
  struct Options {
    std::string Model = "200";  ///< one of `Models`
    ElmoNumbers Numbers = ElmoNumbers::Remarked;
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan (right is positive) and tilt (up is positive), camera units for the rest.
  struct HeadState {
    double Pan, Tilt;
    double Zoom;         ///< 0 to 1000; 400 series 64 to 9568, PTC-402C 0 to 7524
    double Iris, Focus;  ///< 0 to 1000, closed to open and near to far; they move in the 200 series only
    bool IrisIsAuto, FocusIsAuto;
    bool Moving;
    std::vector<int> Presets;  ///< the numbers of those that are stored
  };

  /// "200", "400" and "PTC-402C".
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model.
  explicit Elmo(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  static const Make AtShell;

 private:
  struct Model;
  friend struct ElmoCommands;

  HTTPReply Answer(const Request& request);
  std::string List() const;
  std::string XML() const;
  HeadState Now() const;

  mutable std::mutex Mutex_;
  const Model& Model_;
  ElmoNumbers Numbers_;
  Motion Pan_, Tilt_, Zoom_, Iris_, Focus_;
  bool IrisIsAuto_ = true, FocusIsAuto_ = true;
  std::map<int, std::array<double, 3>> Presets_;  // pan, tilt, zoom
  HTTPServer Server_;
};

}  // namespace ptzsim
