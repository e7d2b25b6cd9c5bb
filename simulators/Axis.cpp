#include "simulators/Axis.h"

#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "simulators/engine/Make.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

enum Ability : unsigned {
  Absolute = 1,
  Relative = 2,
  Continuous = 4,
  Lens = 8,
  ServerPreset = 16,
  DevicePreset = 32,
};

struct Model {
  unsigned Abilities;
  Motion::Range Pan, Tilt;   // degrees
  Motion::Range FieldAngle;  // tenths of a degree, 0: not told
};
constexpr Model Models[] = {
    {Absolute | Relative | Continuous | Lens | ServerPreset, {-170, 170}, {-20, 90}, {22, 623}},
    {Absolute | Relative | Continuous | ServerPreset, {-180, 180}, {-120, 120}, {}},
    {Relative | Continuous | Lens | ServerPreset | DevicePreset, {-175, 175}, {-45, 85}, {}},
    {0, {-1, 1}, {-1, 1}, {}},
};
constexpr Motion::Range LensRange{1, 9999};
constexpr double TurnSpeed = 90;    // degrees per second
constexpr double LensSpeed = 3000;  // units per second

// Rows of the group root.PTZ.Support.
constexpr std::pair<unsigned, std::string_view> Support[] = {
    {Absolute, "AbsolutePan,AbsoluteTilt,AbsoluteZoom"},
    {Relative, "RelativePan,RelativeTilt,RelativeZoom"},
    {Continuous, "ContinuousPan,ContinuousTilt,ContinuousZoom"},
    {Lens, "AutoFocus,AutoIris,RelativeFocus,RelativeIris"},
    {ServerPreset, "ServerPreset"},
    {DevicePreset, "DevicePreset"},
};

std::string Row(const std::string& name, double value, int digits = 0) {
  return name + "=" + Decimal(value, digits) + "\r\n";
}

HTTPReply Error(const std::string& text, std::string violation) {
  return HTTPReply::Text("Error: " + text + "\r\n").Blaming(std::move(violation));
}

}  // namespace

struct Axis::Channel {
  Channel(const Clock& clock, AxisHead head, int index)
      : Kind(&Models[static_cast<int>(head)]),
        Pan(clock, -37.25 - 8 * index, Kind->Pan, TurnSpeed),
        Tilt(clock, 12.5 + 7 * index, Kind->Tilt, TurnSpeed),
        Zoom(clock, 2345 + 111 * index, LensRange, LensSpeed),
        Iris(clock, 5748 + 123 * index, LensRange, LensSpeed),
        Focus(clock, 4823 - 135 * index, LensRange, LensSpeed) {}

  void MoveTo(const std::array<double, 3>& position) {
    Pan.MoveTo(position[0]), Tilt.MoveTo(position[1]), Zoom.MoveTo(position[2]);
  }

  const Model* Kind;
  Motion Pan, Tilt, Zoom, Iris, Focus;
  bool IrisIsAuto = true, FocusIsAuto = false;
  std::map<std::string, std::array<double, 3>> Presets;
};

struct AxisRules {
  using Head = Axis::Channel;

  static void GotoPreset(Head& h, Argument& name) {
    const auto preset = h.Presets.find(name.Text);
    preset != h.Presets.end() ? h.MoveTo(preset->second)
                              : void(name.Reply = "Error: No such preset position\r\n");
  }

  static void SetPreset(Head& h, Argument& name) {
    h.Presets[name.Text] = {h.Pan.Position(), h.Tilt.Position(), h.Zoom.Position()};
  }

  static void Tell(Head& h, Argument& a) {
    const bool lens = h.Kind->Abilities & Lens;
    const auto limits = [&](const std::string& name, Motion::Range r) {
      a.Reply += Row("Min" + name, r.Min) + Row("Max" + name, r.Max);
    };
    if (a.Text == "position") {
      a.Reply = Row("pan", h.Pan.Position(), 4) + Row("tilt", h.Tilt.Position(), 4) +
                Row("zoom", h.Zoom.Position());
      if (!lens) return;
      a.Reply += Row("iris", h.Iris.Position()) + Row("focus", h.Focus.Position());
      a.Reply += h.FocusIsAuto ? "autofocus=on\r\n" : "autofocus=off\r\n";
      a.Reply += h.IrisIsAuto ? "autoiris=on\r\n" : "autoiris=off\r\n";
    } else if (a.Text == "limits") {
      limits("Pan", h.Kind->Pan), limits("Tilt", h.Kind->Tilt), limits("Zoom", LensRange);
      if (lens) limits("Iris", LensRange), limits("Focus", LensRange);
      if (h.Kind->FieldAngle.Max > 0) limits("FieldAngle", h.Kind->FieldAngle);
    } else {
      a.Wrong = "unknown query";
    }
  }

  static void ContinuousPanTilt(Head& h, Argument& percent) {
    h.Pan.Run(percent.First / 100 * TurnSpeed);
    h.Tilt.Run(percent.Second / 100 * TurnSpeed);
  }
  static void ContinuousZoom(Head& h, Argument& percent) { h.Zoom.Run(percent.First / 100 * LensSpeed); }

  // The places that come with the device.
  static void GotoDevicePreset(Head& h, Argument& n) { h.MoveTo({5 + n.First, -3 - n.First, 700 + n.First}); }

  template <Motion Head::*Part>
  static void To(Head& h, Argument& a) {
    (h.*Part).MoveTo(a.First);
  }
  template <Motion Head::*Part>
  static void By(Head& h, Argument& a) {
    (h.*Part).MoveBy(a.First);
  }
  template <bool Head::*Part>
  static void Switch(Head& h, Argument& a) {
    h.*Part = a.Text == "on";
  }

  // Angles come within their ranges. A zoom beyond the tele end and the speeds are clamped: hosts scale them
  // and run over the ends.
  static constexpr Rule<Head> Control[] = {
      {"pan", Absolute, To<&Head::Pan>, Takes::Number, {-180, 180}},
      {"tilt", Absolute, To<&Head::Tilt>, Takes::Number, {-180, 180}},
      {"zoom", Absolute, To<&Head::Zoom>, Takes::Number, {1, 1e9}},
      {"rpan", Relative, By<&Head::Pan>, Takes::Number, {-360, 360}},
      {"rtilt", Relative, By<&Head::Tilt>, Takes::Number, {-360, 360}},
      {"rzoom", Relative, By<&Head::Zoom>, Takes::Number, {-9999, 9999}, true},
      {"riris", Lens, By<&Head::Iris>, Takes::Number, {-9999, 9999}},
      {"rfocus", Lens, By<&Head::Focus>, Takes::Number, {-9999, 9999}},
      {"autoiris", Lens, Switch<&Head::IrisIsAuto>, Takes::Switch},
      {"autofocus", Lens, Switch<&Head::FocusIsAuto>, Takes::Switch},
      {"continuouspantiltmove", Continuous, ContinuousPanTilt, Takes::Pair, {-100, 100}, true},
      {"continuouszoommove", Continuous, ContinuousZoom, Takes::Number, {-100, 100}, true},
      {"gotoserverpresetname", ServerPreset, GotoPreset},
      {"gotodevicepresetno", DevicePreset, GotoDevicePreset, Takes::Number, {1, 63}},
      {"query", Absolute, Tell, Takes::Text},
  };
  static constexpr Rule<Head> Configuration[] = {{"setserverpresetname", ServerPreset, SetPreset}};
};

Axis::Axis(const Options& options)
    : Simulator(options.Clock),
      ParameterLineEnd_(options.ParameterLineEnd),
      Channels_(MakeChannels(Time(), options.Heads)),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

std::vector<Axis::Channel> Axis::MakeChannels(const Clock& clock, const std::vector<AxisHead>& heads) {
  std::vector<Channel> channels;
  for (const AxisHead head : heads) channels.emplace_back(clock, head, static_cast<int>(channels.size()));
  return channels;
}

Axis::~Axis() = default;

HTTPReply Axis::Answer(const Request& request) {
  const Query query(request.Target);
  if (query.Path == "/axis-cgi/view/param.cgi" || query.Path == "/axis-cgi/param.cgi")
    return Parameters(query);
  if (query.Path == "/axis-cgi/com/ptz.cgi") return Control(query, false);
  if (query.Path == "/axis-cgi/com/ptzconfig.cgi") return Control(query, true);
  return {.Status = 404, .Violation = "no such page: " + query.Path};
}

HTTPReply Axis::Parameters(const Query& query) const {
  const auto groups = query.Find("group");
  if (query.Find("action") != "list" || !groups || query.Pairs.size() != 2) {
    return Error("Bad request", "param.cgi takes action=list and group=..., not " + query.Text);
  }
  std::set<std::string> rows;  // cameras list them in alphabetical order
  for (std::size_t i = 0; i < Channels_.size(); ++i) {
    const Model& model = *Channels_[i].Kind;
    const auto limits = [&](const std::string& name, Motion::Range range) {
      const std::string group = "root.PTZ.Limit.L" + std::to_string(i + 1);
      rows.insert(group + ".Min" + name + "=" + Decimal(range.Min, 0));
      rows.insert(group + ".Max" + name + "=" + Decimal(range.Max, 0));
    };
    if (model.FieldAngle.Max > 0) limits("FieldAngle", model.FieldAngle);
    if (model.Abilities & Absolute)
      limits("Pan", model.Pan), limits("Tilt", model.Tilt), limits("Zoom", LensRange);
    for (const auto& [ability, names] : Support) {
      const std::string value = model.Abilities & ability ? "=true" : "=false";
      const std::string group = "root.PTZ.Support.S" + std::to_string(i + 1);
      for (const auto& name : Split(names, ',')) rows.insert(group + "." + name + value);
    }
  }
  std::string body;
  for (const auto& group : Split(*groups, ',')) {
    const std::string prefix = (group.rfind("root", 0) == 0 ? "" : "root.") + group;
    const auto before = body.size();
    for (const auto& row : rows) {
      if (row.rfind(prefix + ".", 0) == 0 || row.rfind(prefix + "=", 0) == 0) body += row + ParameterLineEnd_;
    }
    if (body.size() == before)
      body += "# Error: Error -1 getting param in group '" + group + "'" + ParameterLineEnd_;
  }
  return HTTPReply::Text(body);
}

HTTPReply Axis::Control(const Query& query, bool configuration) {
  const auto index = IndexOf(query, "camera", Channels_.size());
  if (!index) return Error("No such camera", "no such camera: " + query.Text);
  Channel& channel = Channels_[*index];

  const unsigned abilities = channel.Kind->Abilities;
  const Outcome outcome = configuration
                              ? Obey(AxisRules::Configuration, channel, abilities, query, {"camera"})
                              : Obey(AxisRules::Control, channel, abilities, query, {"camera"});
  const bool offeredAnyway = outcome.Lacking & (Lens | Continuous);
  if (!outcome.Wrong.empty())
    return Error(outcome.Wrong, offeredAnyway ? "" : outcome.Wrong + ": " + query.Text);
  return outcome.Reply.empty() ? HTTPReply::Nothing() : HTTPReply::Text(outcome.Reply);
}

Axis::HeadState Axis::Head(int camera) const {
  const std::lock_guard lock(Mutex_);
  const Channel& c = Channels_.at(static_cast<std::size_t>(camera - 1));
  const bool moving =
      c.Pan.Moving() || c.Tilt.Moving() || c.Zoom.Moving() || c.Iris.Moving() || c.Focus.Moving();
  return {c.Pan.Position(),   c.Tilt.Position(), c.Zoom.Position(), c.Iris.Position(),
          c.Focus.Position(), c.IrisIsAuto,      c.FocusIsAuto,     moving,
          c.Presets};
}

nlohmann::json Axis::State() const {
  nlohmann::json heads = nlohmann::json::array();
  for (std::size_t i = 0; i < Channels_.size(); ++i) {
    const HeadState h = Head(static_cast<int>(i) + 1);
    nlohmann::json head = {
        {"camera", i + 1}, {"pan", h.Pan}, {"tilt", h.Tilt}, {"zoom", h.Zoom}, {"iris", h.Iris}};
    head.update({{"focus", h.Focus}, {"autoiris", h.AutoIris}, {"autofocus", h.AutoFocus}});
    head.update({{"moving", h.Moving}, {"presets", h.Presets}});
    heads.push_back(std::move(head));
  }
  return {{"heads", std::move(heads)}};
}

const Make Axis::AtShell = {"axis", "Axis camera or video server (HTTP)", [](Shell& shell) {
                              using enum AxisHead;
                              const auto options = std::make_shared<Options>();
                              shell.Choice("--head", options->Heads,
                                           {{"mechanical", {Mechanical}},
                                            {"digital", {Digital}},
                                            {"relative", {Relative}},
                                            {"none", {None}},
                                            {"multi", {Mechanical, Digital, Relative, None}}},
                                           "Kind of head; mechanical when not given");
                              return From<Axis>(options);
                            }};

}  // namespace ptzsim
