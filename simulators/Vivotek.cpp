#include "simulators/Vivotek.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Pages.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

enum Generation : unsigned { Older = 1, Newer = 2 };

}  // namespace

struct Vivotek::Model {
  std::string_view Name;
  Generation Of;
  double Width, Height;           // of the picture that clicks are in, pixels
  double AcrossDegree, UpDegree;  // pixels per degree
  Motion::Range Pan, Tilt;        // degrees

  static const Model All[];
};

constinit const Vivotek::Model Vivotek::Model::All[] = {
    {"PT7135", Older, 320, 240, 7.74, 6, {-135, 135}, {-90, 45}},
    {"PT31x", Older, 352, 240, 7.74, 6, {-135, 135}, {-45, 45}},
    {"PZ61x", Older, 352, 240, 7.74, 6, {-135, 135}, {-45, 90}},
    {"PZ7132", Newer, 704, 576, 704.0 / 48, 576.0 / 48, {-175, 175}, {-35, 90}},
    {"PZ71X", Newer, 704, 576, 704.0 / 48, 576.0 / 48, {-150, 150}, {-45, 90}},
    {"PT7167", Newer, 704, 576, 704.0 / 48, 576.0 / 48, {-150, 150}, {-45, 90}},
    {"SD83X", Newer, 704, 576, 704.0 / 48, 576.0 / 48, {-180, 180}, {-90, 0}},
    {"SD8362", Newer, 704, 576, 704.0 / 48, 576.0 / 48, {-180, 180}, {-90, 0}},
};

namespace {

constexpr Motion::Range ZoomRange{0, 1000};
constexpr double TurnSpeed = 120, ZoomSpeed = 400;     // per second
constexpr double TurnStep = 5, ZoomStep = 50;          // of move=left and the like, zoom=tele and wide
constexpr double TurnPerSpeed = 6, ZoomPerSpeed = 40;  // per second and unit of vs and zs
constexpr double FastestTurn = 10, FastestZoom = 10;   // beyond it the camera goes no faster
constexpr std::size_t Slots = 128;
constexpr int Abilities = 7;  // pan, tilt, zoom

}  // namespace

/// What the camera knows; whether it took it. They throw std::invalid_argument on values that no such camera
/// takes.
struct VivotekPages {
  static bool Move(Vivotek& v, const Values& values) {
    const std::string& where = values[0];
    if (where == "home")
      v.Pan_.MoveTo(0), v.Tilt_.MoveTo(0);
    else if (where == "left" || where == "right")
      v.Pan_.MoveBy(where == "left" ? -TurnStep : TurnStep);
    else if (where == "up" || where == "down")
      v.Tilt_.MoveBy(where == "down" ? -TurnStep : TurnStep);
    else
      throw std::invalid_argument("move=" + where + " is unknown");
    return true;
  }

  static double Sign(const std::string& name, const std::string& text) {
    if (text == "tele") return 1;
    if (text == "wide") return -1;
    throw std::invalid_argument(name + "=" + text + " is neither tele nor wide");
  }
  static bool Zoom(Vivotek& v, const Values& values) {
    v.Zoom_.MoveBy(Sign("zoom", values[0]) * ZoomStep);
    return true;
  }

  /// Brings the clicked point to the middle. Pixels count from the upper left corner.
  static bool Click(Vivotek& v, const Values& values) {
    const double x = NumberOf(values[0]), y = NumberOf(values[1]);
    v.Pan_.MoveBy((x - v.Model_.Width / 2) / v.Model_.AcrossDegree);
    v.Tilt_.MoveBy((v.Model_.Height / 2 - y) / v.Model_.UpDegree);
    return true;
  }

  // vx and vy are the direction, vs is the speed in it.
  static bool Run(Vivotek& v, const Values& values) {
    const double x = NumberOf(values[0]), y = NumberOf(values[1]);
    const double speed = NumberOf(values[2]), length = std::hypot(x, y);
    if (speed < 0 || (speed == 0) != (length == 0))
      throw std::invalid_argument("a direction goes with a speed, and a stop with neither");
    const double velocity = length == 0 ? 0 : std::min(speed, FastestTurn) * TurnPerSpeed / length;
    v.Pan_.Run(velocity * x), v.Tilt_.Run(velocity * y);
    return true;
  }

  static bool RunZoom(Vivotek& v, const Values& values) {
    const double speed = NumberOf(values[1], {0, Motion::Any.Max});
    v.Zoom_.Run(Sign("zooming", values[0]) * std::min(speed, FastestZoom) * ZoomPerSpeed);
    return true;
  }

  static bool Save(Vivotek& v, const Values& values) {
    auto preset = v.Find(values[0]);
    if (preset == v.Presets_.end()) {
      if (v.Presets_.size() == Slots) return false;
      preset = v.Presets_.insert(preset, {values[0], {}});
    }
    preset->Place = {v.Pan_.Position(), v.Tilt_.Position(), v.Zoom_.Position()};
    return true;
  }
  static bool Recall(Vivotek& v, const Values& values) {
    const auto preset = v.Find(values[0]);
    if (preset == v.Presets_.end()) return false;
    const auto& [pan, tilt, zoom] = preset->Place;
    v.Pan_.MoveTo(pan), v.Tilt_.MoveTo(tilt), v.Zoom_.MoveTo(zoom);
    return true;
  }

  static constexpr Page<Vivotek, bool> All[] = {
      {"/cgi-bin/camctrl.cgi?cam=1&move=*", Move, Older},
      {"/cgi-bin/camctrl.cgi?cam=1&zoom=*", Zoom, Older},
      {"/cgi-bin/camctrl.cgi?cam=1&x=*&y=*", Click, Older},
      {"/cgi-bin/camctrl.cgi?cam=1&vx=*&vy=*&vs=*", Run, Older},
      {"/cgi-bin/camctrl.cgi?cam=1&zooming=*&zs=*", RunZoom, Older},
      {"/cgi-bin/viewer/camctrl.cgi?channel=0&move=*", Move, Newer},
      {"/cgi-bin/viewer/camctrl.cgi?channel=0&zoom=*", Zoom, Newer},
      {"/cgi-bin/viewer/camctrl.cgi?channel=0&x=*&y=*&resolution=704x576&videosize=704x576&video=0&stretch=0",
       Click, Newer},
      {"/cgi-bin/viewer/camctrl.cgi?channel=0&vx=*&vy=*&vs=*", Run, Newer},
      {"/cgi-bin/viewer/camctrl.cgi?channel=0&zooming=*&zs=*", RunZoom, Newer},
      {"/cgi-bin/operator/preset.cgi?channel=0&addpos=*", Save, Newer},
      {"/cgi-bin/viewer/recall.cgi?channel=0&recall=*", Recall, Newer},
  };
};

std::vector<std::string> Vivotek::Models() { return NamesOf(Model::All); }

Vivotek::Vivotek(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Pan_(Time(), 33.5, Model_.Pan, TurnSpeed),
      Tilt_(Time(), -14.25, Model_.Tilt, TurnSpeed),
      Zoom_(Time(), 421, ZoomRange, ZoomSpeed),
      Presets_{{"Main gate", {-52.25, -17, 610}}, {"Car park & ramp", {88, -9.5, 130}}},
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

HTTPReply Vivotek::Answer(const Request& request) {
  const Query query(request.Target, true);
  if (request.Target == "/cgi-bin/sysinfo.cgi") return HTTPReply::Text(Information());
  const auto page = FindPage(VivotekPages::All, query, Model_.Of);
  if (!page.It)
    return {.Status = page.KnowsPath ? 400 : 404, .Violation = "no such request: " + request.Target};
  if (!page.It->Do(*this, page.Given)) return {.Status = 400};
  return HTTPReply::Text("");
}

std::vector<Vivotek::Preset>::iterator Vivotek::Find(const std::string& name) {
  return std::find_if(Presets_.begin(), Presets_.end(), [&](const Preset& p) { return p.Name == name; });
}

std::string Vivotek::Information() const {
  std::string text = "Model=" + std::string(Model_.Name) +
                     "\r\nFirmware=0203b\r\nptzenabled=" + std::to_string(Abilities) + "\r\n";
  for (std::size_t i = 0; Model_.Of == Newer && i < Slots; ++i)
    text += "Preset" + std::to_string(i + 1) + "=" + (i < Presets_.size() ? Presets_[i].Name : "") + "\r\n";
  return text;
}

Vivotek::HeadState Vivotek::Head() const {
  const std::lock_guard lock(Mutex_);
  HeadState head{Pan_.Position(),
                 Tilt_.Position(),
                 Zoom_.Position(),
                 Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving(),
                 {}};
  if (Model_.Of == Newer)
    for (const auto& preset : Presets_) head.Presets.push_back(preset.Name);
  return head;
}

nlohmann::json Vivotek::State() const {
  const HeadState head = Head();
  return {{"model", Model_.Name}, {"pan", head.Pan},       {"tilt", head.Tilt},
          {"zoom", head.Zoom},    {"moving", head.Moving}, {"presets", head.Presets}};
}

const Make Vivotek::AtShell = {"vivotek", "Vivotek or D-Link camera (HTTP)", [](Shell& shell) {
                                 const auto options = std::make_shared<Options>();
                                 shell.Choice<std::string>("--generation", options->Model,
                                                           {{"new", options->Model}, {"old", "PT7135"}},
                                                           "Kind of camera; new when not given");
                                 return From<Vivotek>(options);
                               }};

}  // namespace ptzsim
