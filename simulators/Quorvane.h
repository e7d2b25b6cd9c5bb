#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "simulators/engine/HTTPServer.h"
#include "simulators/engine/Query.h"
#include "simulators/engine/Simulator.h"

namespace ptzsim {

/// Another installation of the surveillance system with its camera feeds: feedlist.xml, ptz/control.htm and
/// ptz/presets.xml. A command it takes is answered with the bare text "OK".
///
/// A feed or preset it does not have is refused and counts no violation, for its host chooses them by name.
class Quorvane : public Simulator {
 public:
  struct Preset {
    std::string ID, Name;
    double Pan = 0, Tilt = 0, Zoom = 0;
  };
  struct Feed {
    std::string ID, Name;
    std::vector<Preset> Presets;  ///< listed as they stand, an ID that stands there twice included
  };
  struct Options {
    std::vector<Feed> Feeds = SomeFeeds();
    bool BadXML = false;  ///< the lists break off in mid-element
    ClockKind Clock = ClockKind::Real;
    std::uint16_t Port = 0;
  };

  /// -1800 to 1800 for pan and -450 to 450 for tilt, in whole units while nothing runs; 0 to 20 for zoom.
  struct FeedState {
    double Pan, Tilt, Zoom;
    bool Moving;
  };

  /// "Front Door" with id 3 and two presets, and "North & East" with the id "north yard" and none.
  static std::vector<Feed> SomeFeeds();

  /// Throws std::invalid_argument for no feeds, for an empty name or id, and for text that is not plain
  /// ASCII.
  explicit Quorvane(const Options& options);
  ~Quorvane() override;

  std::vector<std::string> Addresses() const override { return {Server_.Address()}; }
  nlohmann::json State() const override;
  /// Throws std::out_of_range for an id that is not there.
  FeedState At(const std::string& feedID) const;
  static const Make AtShell;

 private:
  struct Channel;
  friend struct QuorvaneRules;

  HTTPReply Answer(const Request& request);
  HTTPReply Control(Channel& channel, const Query& query);
  HTTPReply XML(std::string document) const;
  static std::map<std::string, Channel> MakeChannels(const Clock& clock, const std::vector<Feed>& feeds);

  mutable std::mutex Mutex_;
  bool BadXML_;
  std::map<std::string, Channel> Channels_;  // by feed id
  HTTPServer Server_;
};

}  // namespace ptzsim
