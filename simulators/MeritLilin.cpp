#include "simulators/MeritLilin.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

constexpr int MostCameras = 4;
constexpr Motion::Range TiltRange{-30, 90}, ZoomRange{1, 36};
constexpr double Ahead = 180;                            // pan where a host has its zero
constexpr double TurnSpeed = 120, ZoomSpeed = 12;        // per second, to a position
constexpr double TurnPerSpeed = 10, ZoomPerSpeed = 1.5;  // per second and unit of a continuous speed
constexpr Motion::Range SpeedRange{-8, 8};

std::string Row(const char* name, double value, int digits = 0) {
  return std::string(name) + "=" + Decimal(value, digits) + "\n";
}

HTTPReply Refused(const std::string& why) {
  return {.Status = 400, .Body = "Bad request\n", .Violation = why};
}

}  // namespace

struct MeritLilin::Dome {
  Dome(const Clock& clock, int index)
      : Pan(clock, 213 + 23 * index, Motion::Endless, TurnSpeed),
        Tilt(clock, 17 - 6 * index, TiltRange, TurnSpeed),
        Zoom(clock, 4.5 + 1.25 * index, ZoomRange, ZoomSpeed),
        Iris(41 + 3 * index),
        Focus(67 - 4 * index),
        Presets{{7, {301.0 - 19 * index, 12.0 + 8 * index, 8.25 + index}}} {}

  bool Moving() const { return Pan.Moving() || Tilt.Moving() || Zoom.Moving(); }
  std::array<double, 3> Place() const {
    return {Wrapped(Pan.Position(), 0), Tilt.Position(), Zoom.Position()};
  }

  Motion Pan, Tilt, Zoom;
  int Iris, Focus;
  bool IrisIsAuto = true, FocusIsAuto = false;
  std::map<int, std::array<double, 3>> Presets;
};

struct MeritLilinRules {
  using Dome = MeritLilin::Dome;

  static void Tell(Dome& d, Argument& a) {
    if (a.Text != "getallposdegree") return void(a.Wrong = "unknown cmd");
    const auto [pan, tilt, zoom] = d.Place();
    a.Reply = Row("autopan", 0) + Row("panposdegree", static_cast<double>(std::lround(pan) % 360)) +
              Row("tiltposdegree", tilt) + Row("zoomposdegree", zoom, 2) + Row("focuspos", d.Focus);
  }

  static void PanTo(Dome& d, Argument& a) { d.Pan.TurnTo(a.First); }
  static void TiltTo(Dome& d, Argument& a) { d.Tilt.MoveTo(a.First); }
  static void ZoomTo(Dome& d, Argument& a) { d.Zoom.MoveTo(a.First); }
  static void RunPan(Dome& d, Argument& a) { d.Pan.Run(a.First * TurnPerSpeed); }
  static void RunTilt(Dome& d, Argument& a) { d.Tilt.Run(-a.First * TurnPerSpeed); }
  static void RunZoom(Dome& d, Argument& a) { d.Zoom.Run(-a.First * ZoomPerSpeed); }
  static void Stop(Dome& d, Argument&) { d.Pan.Stop(), d.Tilt.Stop(); }
  static void StopZoom(Dome& d, Argument&) { d.Zoom.Stop(); }

  static void SavePreset(Dome& d, Argument& a) { d.Presets[static_cast<int>(a.First)] = d.Place(); }
  static void GotoPreset(Dome& d, Argument& a) {
    const auto preset = d.Presets.find(static_cast<int>(a.First));
    if (preset == d.Presets.end()) return;
    const auto& [pan, tilt, zoom] = preset->second;
    d.Pan.TurnTo(pan), d.Tilt.MoveTo(tilt), d.Zoom.MoveTo(zoom);
  }

  template <int Dome::*Part, bool Dome::*Auto>
  static void Step(Dome& d, Argument& a) {
    if (a.First == 0) return void(a.Wrong = "a step of 0");
    d.*Part += static_cast<int>(a.First), d.*Auto = false;
  }
  template <bool Dome::*Auto>
  static void SwitchOn(Dome& d, Argument&) {
    d.*Auto = true;
  }

  static constexpr Rule<Dome> Control[] = {
      {"cmd", 1, Tell, Takes::Text},
      {"panposdegree", 1, PanTo, Takes::Whole, {0, 359}},
      {"tiltposdegree", 1, TiltTo, Takes::Whole, Motion::Any},
      {"zoomposdegree", 1, ZoomTo, Takes::Number, {1, Motion::Any.Max}},
      {"rpan", 1, RunPan, Takes::Whole, SpeedRange, true},
      {"rtilt", 1, RunTilt, Takes::Whole, SpeedRange, true},
      {"rzoom", 1, RunZoom, Takes::Whole, SpeedRange, true},
      {"stop", 1, Stop, Takes::Whole, {1, 1}},
      {"zoom_stop", 1, StopZoom, Takes::Whole, {1, 1}},
  };
  static constexpr Rule<Dome> Preset[] = {
      {"set_preset", 1, SavePreset, Takes::Whole, {0, 127}},
      {"goto_preset", 1, GotoPreset, Takes::Whole, {0, 127}},
  };
  static constexpr Rule<Dome> Lens[] = {
      {"autoiris", 1, SwitchOn<&Dome::IrisIsAuto>, Takes::Whole, {1, 1}},
      {"autofocus", 1, SwitchOn<&Dome::FocusIsAuto>, Takes::Whole, {1, 1}},
      {"iris", 1, Step<&Dome::Iris, &Dome::IrisIsAuto>, Takes::Whole, {-1, 1}},
      {"focus", 1, Step<&Dome::Focus, &Dome::FocusIsAuto>, Takes::Whole, {-1, 1}},
  };
};

MeritLilin::MeritLilin(Options options)
    : Simulator(options.Clock),
      Domes_(Several(options.Cameras, MostCameras, "cameras", [this](int i) { return Dome(Time(), i); })),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

MeritLilin::~MeritLilin() = default;

HTTPReply MeritLilin::Answer(const Request& request) {
  const Query query(request.Target);
  if (request.Target == "/")
    return HTTPReply::Text("<html><head><title>Fast dome</title></head><body></body></html>\n", "text/html");
  const bool control = query.Path == "/control", preset = query.Path == "/ptzpreset";
  if (!control && !preset && query.Path != "/camera")
    return {.Status = 404, .Violation = "no such page: " + request.Target};

  const auto index = IndexOf(query, "camid", Domes_.size());
  if (!index) return Refused("no such camera: " + request.Target);
  Dome& dome = Domes_[*index];
  const Outcome outcome = control  ? Obey(MeritLilinRules::Control, dome, 1, query, {"camid"})
                          : preset ? Obey(MeritLilinRules::Preset, dome, 1, query, {"camid"})
                                   : Obey(MeritLilinRules::Lens, dome, 1, query, {"camid"});
  if (!outcome.Wrong.empty()) return Refused(outcome.Wrong + ": " + request.Target);
  return HTTPReply::Text(outcome.Reply.empty() ? "OK\n" : outcome.Reply);
}

MeritLilin::HeadState MeritLilin::Head(int camera) const {
  const std::lock_guard lock(Mutex_);
  const Dome& d = Domes_.at(static_cast<std::size_t>(camera - 1));
  const auto [pan, tilt, zoom] = d.Place();
  return {pan - Ahead, -tilt, zoom, d.Iris, d.Focus, d.IrisIsAuto, d.FocusIsAuto, d.Moving(), d.Presets};
}

nlohmann::json MeritLilin::State() const {
  const std::lock_guard lock(Mutex_);
  nlohmann::json cameras = nlohmann::json::array();
  for (const Dome& d : Domes_) {
    const auto [pan, tilt, zoom] = d.Place();
    nlohmann::json presets = nlohmann::json::object();
    for (const auto& [number, place] : d.Presets) presets[std::to_string(number)] = place;
    nlohmann::json camera = {{"camera", cameras.size() + 1}, {"pan", pan}, {"tilt", tilt}, {"zoom", zoom}};
    camera.update({{"iris", d.Iris}, {"focus", d.Focus}, {"autoiris", d.IrisIsAuto}});
    camera.update({{"autofocus", d.FocusIsAuto}, {"moving", d.Moving()}, {"presets", std::move(presets)}});
    cameras.push_back(std::move(camera));
  }
  return {{"cameras", std::move(cameras)}};
}

const Make MeritLilin::AtShell = {"meritlilin", "Merit Lilin dome or video server (HTTP)",
                                  [](Shell& shell) {
                                    const auto options = std::make_shared<Options>();
                                    shell.Number("--cameras", options->Cameras, 1, MostCameras,
                                                 "How many cameras it serves");
                                    return From<MeritLilin>(options);
                                  },
                                  Line::HTTP, "Merit Lilin"};

}  // namespace ptzsim
