#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Panasonic i-Pro camera, or an encoder with a head on each of several channels: getinfo, absget and
/// absctrl. Commands are answered with 204.
///
/// Pan and tilt come together and within their ends. A zoom beyond the end of the lens, which a host cannot
/// know, goes to the end.
class PanasoniciPro : public Simulator {
 public:
  static constexpr int MostChannels = 4;

  struct Options {
    std::string Model = "WV-SC384";  ///< one of `Models`
    int Channels = 1;                ///< 1 to `MostChannels`; a request without "ch" means the first
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees for pan (positive to the right) and tilt (positive upwards); 1 and up for zoom, the
  /// magnification.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
    Motion::Range PanEnds, TiltEnds;  ///< degrees; those of a pan without end are -180 and 180
  };

  /// WV-SW174W, WV-SW175 and BL-VT164 tell and take signed angles; the others count pan from the left end and
  /// tilt downwards, and those from -180 to 180 degrees turn without end.
  static std::vector<std::string> Models();

  /// Throws std::invalid_argument for an unknown model or a number of channels there cannot be.
  explicit PanasoniciPro(const Options& options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// Throws std::out_of_range for a channel it does not have.
  HeadState Head(int channel = 1) const;
  static const Make AtShell;

 private:
  struct Model;
  struct Channel {
    Motion Pan, Tilt, Zoom;  // as on the wire: tenths of a degree, tenths of the magnification
  };

  Channel AtFirst(int index);
  HTTPReply Answer(const Request& request);
  Channel& Take(Query& query);
  std::string Information() const;
  std::string Position(const Channel& channel) const;
  void Obey(Channel& channel, const Query& query);
  HeadState Now(const Channel& channel) const;

  mutable std::mutex Mutex_;
  const Model& Model_;
  std::vector<Channel> Channels_;
  HTTPServer Server_;
};

}  // namespace ptzsim
