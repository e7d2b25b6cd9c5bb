#include "simulators/Quorvane.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <stdexcept>

#include "simulators/engine/Make.h"
#include "simulators/engine/Motion.h"

namespace ptzsim {
namespace {

constexpr Motion::Range PanRange{-1800, 1800}, TiltRange{-450, 450}, ZoomRange{0, 20};
constexpr double TurnSpeed = 600, ZoomSpeed = 5;               // per second
constexpr double TurnPerJoystick = 10, ZoomPerJoystick = 0.1;  // per second and unit of the joystick
constexpr double FullJoystick = 100;                           // further out is no faster

std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&' || c == '<' || c == '"')
      escaped += "&#" + std::to_string(c) + ";";
    else
      escaped += c;
  }
  return escaped;
}

std::string Attributes(const std::string& id, const std::string& name) {
  return " id=\"" + Escape(id) + "\" name=\"" + Escape(name) + "\"";
}

void Check(const std::string& text) {
  const bool plain = std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~'; });
  if (text.empty() || !plain)
    throw std::invalid_argument("\"" + text + "\" is no name or id: one or more ASCII characters");
}

}  // namespace

struct Quorvane::Channel {
  Channel(const Clock& clock, const Feed& feed, int index)
      : Self(feed),
        Pan(clock, 210 - 33 * index, PanRange, TurnSpeed),
        Tilt(clock, -75 + 13 * index, TiltRange, TurnSpeed),
        Zoom(clock, 3.5 + index, ZoomRange, ZoomSpeed) {}

  Feed Self;
  Motion Pan, Tilt, Zoom;
};

/// The parameters of a command. What is missing, in excess or not of its kind is told by
/// std::invalid_argument, before the camera moves.
struct QuorvaneRules {
  using Channel = Quorvane::Channel;

  const Query& From;
  std::set<std::string> Known{"feed"};

  std::optional<std::string> Text(const std::string& name) {
    Known.insert(name);
    return From.Find(name);
  }
  double Demanded(const std::string& name) {
    const auto text = Text(name);
    const auto number = Number(text.value_or(""));
    if (!number) throw std::invalid_argument(name + " is missing or not a number");
    return *number;
  }
  double WholeOffset(const std::string& name) {
    if (!Text(name)) return 0;
    const double offset = Demanded(name);
    if (offset != std::floor(offset)) throw std::invalid_argument(name + " is not a whole number");
    return offset;
  }
  /// Percent of the full way, which is as far as the joystick goes.
  double Joystick(const std::string& name) { return std::clamp(Demanded(name), -FullJoystick, FullJoystick); }

  /// False for a preset that the feed does not have.
  bool Obey(Channel& channel) {
    const auto move = Text("move"), zoom = Text("zoom");
    const bool offset = move == "offset", runs = move == "joystick", zooms = zoom == "offset";
    const Quorvane::Preset* preset = nullptr;
    double pan = 0, tilt = 0, level = 0;
    if (offset) {
      pan = WholeOffset("pan"), tilt = WholeOffset("tilt");
    } else if (runs) {
      pan = Joystick("x") * TurnPerJoystick, tilt = Joystick("y") * TurnPerJoystick;
    } else if (move == "preset") {
      const auto id = Text("preset");
      if (!id) throw std::invalid_argument("preset is missing");
      for (const auto& p : channel.Self.Presets)
        if (p.ID == *id && !preset) preset = &p;
    } else if (move) {
      throw std::invalid_argument("unknown move " + *move);
    }
    if (zooms)
      level = Demanded("level");
    else if (zoom == "joystick")
      level = Joystick("level") * ZoomPerJoystick;
    else if (zoom)
      throw std::invalid_argument("unknown zoom " + *zoom);
    if (!move && !zoom) throw std::invalid_argument("no command");
    for (const auto& [name, value] : From.Pairs)
      if (!Known.contains(name)) throw std::invalid_argument("unknown parameter " + name);

    if (move == "preset") {
      if (!preset) return false;
      channel.Pan.MoveTo(preset->Pan), channel.Tilt.MoveTo(preset->Tilt), channel.Zoom.MoveTo(preset->Zoom);
    }
    if (offset) channel.Pan.MoveBy(pan), channel.Tilt.MoveBy(tilt);
    if (runs) channel.Pan.Run(pan), channel.Tilt.Run(tilt);
    if (zoom) zooms ? channel.Zoom.MoveBy(level) : channel.Zoom.Run(level);
    return true;
  }
};

std::vector<Quorvane::Feed> Quorvane::SomeFeeds() {
  return {
      {"3", "Front Door", {{"main gate", "Main gate", -317, 42, 2.5}, {"7", "Ramp & <yard>", 905, -118, 11}}},
      {"north yard", "North & East", {}}};
}

Quorvane::Quorvane(const Options& options)
    : Simulator(options.Clock),
      BadXML_(options.BadXML),
      Channels_(MakeChannels(Time(), options.Feeds)),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

Quorvane::~Quorvane() = default;

std::map<std::string, Quorvane::Channel> Quorvane::MakeChannels(const Clock& clock,
                                                                const std::vector<Feed>& feeds) {
  if (feeds.empty()) throw std::invalid_argument("an installation has at least one feed");
  std::map<std::string, Channel> channels;
  for (const Feed& feed : feeds) {
    Check(feed.ID), Check(feed.Name);
    for (const Preset& preset : feed.Presets) Check(preset.ID), Check(preset.Name);
    const int index = static_cast<int>(channels.size());
    if (!channels.try_emplace(feed.ID, clock, feed, index).second)
      throw std::invalid_argument("two feeds have the id \"" + feed.ID + "\"");
  }
  return channels;
}

HTTPReply Quorvane::Answer(const Request& request) {
  const Query query(request.Target, true);
  if (request.Target == "/")
    return HTTPReply::Text("<html><body><h1>Cameras</h1></body></html>\r\n", "text/html");
  if (query.Path == "/feedlist.xml") {
    std::string list = "<feeds>\r\n";
    for (const auto& [id, channel] : Channels_)
      list += "<feed" + Attributes(id, channel.Self.Name) + "/>\r\n";
    return XML(list + "</feeds>");
  }
  const bool presets = query.Path == "/ptz/presets.xml";
  if (!presets && query.Path != "/ptz/control.htm")
    return {.Status = 404, .Violation = "no such page: " + request.Target};

  const auto id = query.Find("feed");
  if (!id) return {.Status = 400, .Violation = "no feed is named: " + request.Target};
  const auto channel = Channels_.find(*id);
  if (channel == Channels_.end()) return {.Status = 404, .Body = "Unknown feed"};
  if (!presets) return Control(channel->second, query);
  if (query.Pairs.size() != 1) return {.Status = 400, .Violation = "unknown parameters: " + request.Target};
  std::string list = "<presets feed=\"" + Escape(*id) + "\">\r\n";
  for (const Preset& preset : channel->second.Self.Presets)
    list += "<preset" + Attributes(preset.ID, preset.Name) + "/>\r\n";
  return XML(list + "</presets>");
}

HTTPReply Quorvane::XML(std::string document) const {
  document = "<?xml version=\"1.0\"?>\r\n" + document + "\r\n";
  if (BadXML_) document.resize(document.rfind('<') + 1);
  return HTTPReply::Text(document, "text/xml");
}

HTTPReply Quorvane::Control(Channel& channel, const Query& query) {
  QuorvaneRules rules{query};
  try {
    return HTTPReply::Text(rules.Obey(channel) ? "OK" : "Unknown preset", "text/html");
  } catch (const std::invalid_argument& wrong) {
    return HTTPReply::Text("Bad command", "text/html").Blaming(wrong.what() + (": " + query.Text));
  }
}

Quorvane::FeedState Quorvane::At(const std::string& feedID) const {
  const std::lock_guard lock(Mutex_);
  const Channel& c = Channels_.at(feedID);
  return {c.Pan.Position(), c.Tilt.Position(), c.Zoom.Position(),
          c.Pan.Moving() || c.Tilt.Moving() || c.Zoom.Moving()};
}

nlohmann::json Quorvane::State() const {
  nlohmann::json feeds = nlohmann::json::array();
  for (const auto& [id, channel] : Channels_) {
    const FeedState now = At(id);
    feeds.push_back({{"id", id}, {"name", channel.Self.Name}, {"pan", now.Pan}, {"tilt", now.Tilt}});
    feeds.back().update({{"zoom", now.Zoom}, {"moving", now.Moving}});
  }
  return {{"feeds", std::move(feeds)}};
}

const Make Quorvane::AtShell = {
    "quorvane", "Another installation of the surveillance system (HTTP)", [](Shell& shell) {
      const auto options = std::make_shared<Options>();
      shell.Words(
          "--feeds", {},
          [options, first = true](const std::string& feed) mutable {
            if (std::exchange(first, false)) options->Feeds.clear();
            const auto equals = feed.find('=');
            if (equals == feed.npos) throw std::invalid_argument("--feeds " + feed + ": is not ID=NAME");
            options->Feeds.push_back(
                {feed.substr(0, equals), feed.substr(equals + 1), SomeFeeds()[0].Presets});
          },
          "The feeds as ID=NAME; when not given \"3=Front Door\" and another");
      shell.Flag("--bad-xml", options->BadXML, true,
                 "Break off the lists of feeds and presets in mid-element");
      return From<Quorvane>(options);
    }};

}  // namespace ptzsim
