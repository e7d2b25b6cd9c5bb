#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// A Sanyo network camera: index.html, which hands out a session's cookie and keeps the session alive,
/// opecmd.cgi for commands and liveimg.cgi for the position, told ahead of the picture. Presets 1 and 7 are
/// registered.
///
/// Without a live session both CGIs are refused. That is a violation, but for a position asked for when the
/// session has run out: a host that only looks on has sent nothing for a while. To execute a preset nobody
/// registered is refused and counts no violation. Steps end after half a picture and where the head does.
class Sanyo : public Simulator {
 public:
  /// What liveimg.cgi tells.
  struct Status {
    bool PanTilt = true;  ///< whether pan and tilt are given; if not, their flag is set and they are nonsense
    bool Zoom = true;     ///< the same of the zoom
    std::size_t Length = std::string::npos;  ///< bytes after which the reply ends, 22 being the shortest that
                                             ///< has everything
  };
  struct Options {
    std::chrono::milliseconds Session = std::chrono::minutes(5);  ///< until it ends, in the camera's time
    Status Told{};
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// Degrees, right and up positive, and the level of the zoom, 1 to 22.
  struct HeadState {
    double Pan, Tilt, Zoom;
    bool Moving;
    std::vector<int> Presets;  ///< numbers of those registered
  };

  explicit Sanyo(Options options);

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  HeadState Head() const;
  /// What liveimg.cgi tells from now on. Any thread.
  void Tell(Status status);
  static const Make AtShell;

 private:
  friend struct SanyoCommands;

  HTTPReply Answer(const Request& request);
  HTTPReply Index(const std::optional<std::string>& session);
  bool Alive(const std::string& session);
  std::string Position() const;
  HTTPReply Obey(const Query& query);

  mutable std::mutex Mutex_;
  std::chrono::milliseconds Lifetime_;
  std::map<std::string, std::chrono::milliseconds> Sessions_;  // when each was last kept alive
  int LastSession_ = 0;
  Status Status_;
  Motion Pan_, Tilt_, Zoom_;
  std::map<int, std::array<double, 3>> Presets_;  // pan, tilt, zoom
  HTTPServer Server_;
};

}  // namespace ptzsim
