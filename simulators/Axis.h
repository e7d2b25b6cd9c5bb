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

enum class AxisHead {
  Mechanical,  ///< everything: absolute, relative, continuous, iris, focus, field angles
  Digital,     ///< pan, tilt and zoom in all ways; neither field angles nor iris and focus
  Relative,    ///< moves by steps only and tells no position, with presets in the device
  None,        ///< a fixed camera
};

/// An Axis camera or video server with its PTZ interface: param.cgi, ptz.cgi and ptzconfig.cgi, which take
/// GET requests only here.
///
/// Hosts offer iris, focus and continuous moves without looking at the head's abilities; a head without them
/// answers with an error and counts no violation. Neither is it one to ask for a preset nobody saved.
class Axis : public Simulator {
 public:
  struct Options {
    std::vector<AxisHead> Heads = {AxisHead::Mechanical};  ///< camera=1, 2, ...
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
    std::string ParameterLineEnd = "\n";  ///< of param.cgi; some firmware sends "\r\n"
  };

  /// What a camera is doing now: degrees for pan and tilt, 1 to 9999 for zoom, iris and focus.
  struct HeadState {
    double Pan, Tilt, Zoom, Iris, Focus;
    bool AutoIris, AutoFocus, Moving;
    std::map<std::string, std::array<double, 3>> Presets;  ///< pan, tilt and zoom by name
  };

  explicit Axis(const Options& options);
  ~Axis() override;

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// Camera 1, 2, ...; throws std::out_of_range for one that is not there.
  HeadState Head(int camera = 1) const;
  static const Make AtShell;

 private:
  struct Channel;
  friend struct AxisRules;

  static std::vector<Channel> MakeChannels(const Clock& clock, const std::vector<AxisHead>& heads);
  HTTPReply Answer(const Request& request);
  HTTPReply Parameters(const Query& query) const;
  HTTPReply Control(const Query& query, bool configuration);

  mutable std::mutex Mutex_;
  std::string ParameterLineEnd_;
  std::vector<Channel> Channels_;
  HTTPServer Server_;
};

}  // namespace ptzsim
