#include "cameras/TourFile.h"

#include <algorithm>
#include <system_error>

#include "cameras/TOMLReader.h"
#include "platform/ConfigurationFolders.h"
#include "platform/PrivateFile.h"

namespace ptzd {

namespace {

class Reader : private TOMLReader {
 public:
  using TOMLReader::TOMLReader;

  Tour Read(const toml::table& document) const {
    static const std::vector<std::string> known = {"rounds", "pause", "arrive", "travel", "stop"};
    Tour tour;
    std::chrono::milliseconds pause{};
    const toml::node* stops = nullptr;
    for (const auto& [key, node] : document) {
      const std::string word(key.str());
      if (word == "rounds") {
        tour.Rounds = WholeNumberAt(node, word);
        if (tour.Rounds < 0) Fail(node.source(), "rounds: expected how many, or 0 for without end");
      } else if (word == "pause") {
        pause = TimeAt(node, word);
      } else if (word == "arrive") {
        tour.Arrive = TimeAt(node, word);
        if (tour.Arrive.count() == 0) Fail(node.source(), "arrive: expected more than 0");
      } else if (word == "travel") {
        tour.Travel = TimeAt(node, word);
      } else if (word == "stop") {
        stops = &node;
      } else {
        FailUnknown(key, "the key", known);
      }
    }
    if (stops == nullptr) Fail(document.source(), "expected stops, each under [[stop]]");
    if (!stops->is_array()) FailType(*stops, "stop", "stops, each under [[stop]]");
    for (const auto& stop : *stops->as_array()) tour.Stops.push_back(StopAt(Table(stop, "stop"), pause));
    if (tour.Stops.empty()) Fail(stops->source(), "expected stops, each under [[stop]]");
    return tour;
  }

 private:
  TourStop StopAt(const toml::table& table, std::chrono::milliseconds pause) const {
    static const std::vector<std::string> known = {"preset",    "pan",        "tilt",       "zoom", "speed",
                                                   "pan_speed", "tilt_speed", "zoom_speed", "for",  "pause"};
    TourStop stop{.Pause = pause};
    std::optional<float> panSpeed, tiltSpeed, zoomSpeed;
    for (const auto& [key, node] : table) {
      const std::string word(key.str());
      const auto what = "stop, " + word;
      if (word == "preset")
        stop.Preset = node.is_integer() ? std::to_string(WholeNumberAt(node, what)) : TextAt(node, what);
      else if (word == "pan")
        stop.To.Pan = NumberAt(node, what);
      else if (word == "tilt")
        stop.To.Tilt = NumberAt(node, what);
      else if (word == "zoom")
        stop.To.Zoom = NumberAt(node, what);
      else if (word == "speed")
        stop.Speed = NumberAt(node, what);
      else if (word == "pan_speed")
        panSpeed = NumberAt(node, what);
      else if (word == "tilt_speed")
        tiltSpeed = NumberAt(node, what);
      else if (word == "zoom_speed")
        zoomSpeed = NumberAt(node, what);
      else if (word == "for")
        stop.For = TimeAt(node, what);
      else if (word == "pause")
        stop.Pause = TimeAt(node, what);
      else
        FailUnknown(key, "stop: the key", known);
    }
    if (panSpeed || tiltSpeed || zoomSpeed) {
      stop.Speeds = DriveSpeeds{{}, zoomSpeed};
      if (panSpeed || tiltSpeed) stop.Speeds->PanTilt = {panSpeed.value_or(0), tiltSpeed.value_or(0)};
    }
    Check(stop, table.source());
    return stop;
  }

  void Check(const TourStop& stop, const toml::source_region& at) const {
    const auto& to = stop.To;
    const bool isPlace = to.Pan || to.Tilt || to.Zoom;
    if (!stop.Preset.empty() + isPlace + stop.Speeds.has_value() != 1)
      Fail(at,
           "stop: expected one of a preset, a place (pan and tilt, zoom, or all three) and speeds "
           "(pan_speed, tilt_speed, zoom_speed)");
    if (to.Pan.has_value() != to.Tilt.has_value()) Fail(at, "stop: expected both pan and tilt, or neither");
    if (stop.Speeds.has_value() != (stop.For.count() != 0))
      Fail(at, "stop: expected speeds and for, how long the camera is driven at them, together");
    if (stop.Speed && !(*stop.Speed > 0 && to.Pan))
      Fail(at, "stop: expected a speed above 0, and pan and tilt as where to go at it");
  }
};

}  // namespace

Tour ReadTour(const std::string& file) {
  constexpr std::size_t longest = 1 << 20;
  try {
    return Reader(file).Read(ParseTOML(ReadWholeFile(PathOf(file), longest).Text, file));
  } catch (const std::system_error& error) {
    throw InputError("the tour " + file + " cannot be read: " + error.what());
  }
}

}  // namespace ptzd
