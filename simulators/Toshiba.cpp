#include "simulators/Toshiba.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Pages.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

enum Kind : unsigned { Grid = 1, Presets = 2 };

constexpr double TurnSpeed = 100;  // degrees per second
constexpr Motion::Range ZoomRange{0, 1000};
constexpr double ZoomSpeed = 400, ZoomStep = 50;
constexpr int Slots = 64;            // of presets
constexpr long long GridOffset = 3;  // of both numbers of a grid point in commands
constexpr char Taken[] = "20 OK\r\n";
constexpr char Refused[] = "40 Bad Request\r\n";

}  // namespace

struct Toshiba::Model {
  std::string_view Name;
  Kind Has;
  Scale Pan, Tilt;
  double StartPan, StartTilt;  // units

  static const Model All[];
};

constinit const Toshiba::Model Toshiba::Model::All[] = {
    {"IK-WB01", Grid, {16, -56, 56}, {10, 5, -49}, 10, 6},
    {"IK-WB11", Grid, {16, -56, 56}, {10, 5, -49}, 9, 2},
    {"IK-WB15", Presets, {7716, -175, 175}, {2617, 30, -90}, 4321, 987},
    {"IK-WB21", Presets, {7716, -175, 175}, {2617, 30, -90}, 3210, 1098},
};

namespace {

int Slot(long long number) {
  if (number < 1 || number > Slots) throw std::invalid_argument("there is no such preset");
  return static_cast<int>(number);
}

}  // namespace

/// The pages throw std::invalid_argument on values that no such camera takes, before anything moves.
struct ToshibaPages {
  static HTTPReply TellPoint(Toshiba& t, const Values&) {
    const long point = std::lround(t.Pan_.Position()) * 256 + std::lround(t.Tilt_.Position());
    return HTTPReply::Text("PTPOINT " + std::to_string(point) + "\r\n", "text/html");
  }

  static HTTPReply GoToPoint(Toshiba& t, const Values& values) {
    const long long point = WholeOf(values[0]);
    const long long pan = point / 256 - GridOffset, tilt = point % 256 - GridOffset;
    if (!t.Has(pan, tilt)) throw std::invalid_argument("cont_3=" + values[0] + " is no point of the grid");
    t.Pan_.MoveTo(static_cast<double>(pan)), t.Tilt_.MoveTo(static_cast<double>(tilt));
    return HTTPReply::Text("<html><head><title>IK-WB</title></head><body></body></html>\r\n", "text/html");
  }

  static HTTPReply TellPosition(Toshiba& t, const Values&) {
    const auto row = [](const std::string& name, double value) {
      return name + " (" + Decimal(value, 0) + ")\r\n";
    };
    return HTTPReply::Text(Taken + row("PAN", t.Pan_.Position()) + row("TILT", t.Tilt_.Position()) +
                           row("Zoom", t.Zoom_.Position()));
  }

  template <int Direction>
  static HTTPReply Zoom(Toshiba& t, const Values&) {
    t.Zoom_.MoveBy(Direction * ZoomStep);
    return HTTPReply::Text(Taken);
  }

  static HTTPReply StorePreset(Toshiba& t, const Values& values) {
    constexpr std::string_view begin = "PresetNumber-";
    if (!values[0].starts_with(begin)) throw std::invalid_argument("type does not name a preset");
    const int slot = Slot(WholeOf(values[0].substr(begin.size())));
    if (values[1].empty()) throw std::invalid_argument("PresetName is empty");
    const long long pan = WholeOf(values[2]), tilt = WholeOf(values[3]);
    if (!t.Has(pan, tilt)) return HTTPReply::Text(Refused);
    t.Presets_[slot] = {values[1], static_cast<double>(pan), static_cast<double>(tilt)};
    return HTTPReply::Text(Taken);
  }

  /// The number's high byte says what to do with the preset in its low byte.
  static HTTPReply UsePreset(Toshiba& t, const Values& values) {
    enum { Recall = 1, Store, Delete };
    const long long number = WholeOf(values[0]), action = number / 256;
    if (action < Recall || action > Delete)
      throw std::invalid_argument("cont_4=" + values[0] + " does nothing with a preset");
    const int slot = Slot(number % 256);
    if (action == Store) {
      t.Presets_[slot].Pan = t.Pan_.Position(), t.Presets_[slot].Tilt = t.Tilt_.Position();
      return HTTPReply::Text(Taken);
    }
    const auto preset = t.Presets_.find(slot);
    if (preset == t.Presets_.end()) return HTTPReply::Text(Refused);
    if (action == Delete)
      t.Presets_.erase(preset);
    else
      t.Pan_.MoveTo(preset->second.Pan), t.Tilt_.MoveTo(preset->second.Tilt);
    return HTTPReply::Text(Taken);
  }

  static constexpr Page<Toshiba, HTTPReply> All[] = {
      {"/getcurrentptpointapi.htm", TellPoint, Grid},
      // The second is the page to be answered with.
      {"/directmoveapi.cgi?cont_3=*&ok=dummy.htm", GoToPoint, Grid},
      {"/api/wbgetptzposition.cgi", TellPosition, Presets},
      {"/api/wbsetzoom.cgi?type=Set&Zoom=Tele", Zoom<1>, Presets},
      {"/api/wbsetzoom.cgi?type=Set&Zoom=Wide", Zoom<-1>, Presets},
      {"/api/wbsetptpreset.cgi?type=*&PresetName=*&PanPosition=*&TiltPosition=*", StorePreset, Presets},
      {"/api/wbpresetapi.cgi?cont_4=*", UsePreset, Presets},
  };
};

std::vector<std::string> Toshiba::Models() { return NamesOf(Model::All); }

Toshiba::Toshiba(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Pan_(Time(), Model_.StartPan, Model_.Pan.Range(), Model_.Pan.PerSecond(TurnSpeed)),
      Tilt_(Time(), Model_.StartTilt, Model_.Tilt.Range(), Model_.Tilt.PerSecond(TurnSpeed)),
      Zoom_(Time(), 340, ZoomRange, ZoomSpeed),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {
  if (Model_.Has == Presets) Presets_ = {{3, {"Main gate", 1234, 567}}, {Slots, {"Car park", 6543, 1765}}};
}

HTTPReply Toshiba::Answer(const Request& request) {
  const Query query(request.Target);
  const auto page = FindPage(ToshibaPages::All, query, Model_.Has);
  if (!page.KnowsPath) return {.Status = 404, .Violation = "no such page: " + request.Target};
  try {
    if (!page.It) throw std::invalid_argument("not the parameters of that page");
    return page.It->Do(*this, page.Given);
  } catch (const std::invalid_argument& wrong) {
    return (Model_.Has == Grid ? HTTPReply{.Status = 400} : HTTPReply::Text(Refused))
        .Blaming(wrong.what() + (": " + request.Target));
  }
}

bool Toshiba::Has(long long pan, long long tilt) const {
  return pan >= 0 && pan <= std::llround(Model_.Pan.Last) && tilt >= 0 &&
         tilt <= std::llround(Model_.Tilt.Last);
}

Toshiba::HeadState Toshiba::Now() const {
  HeadState head{.Pan = Model_.Pan.Degrees(Pan_.Position()),
                 .Tilt = Model_.Tilt.Degrees(Tilt_.Position()),
                 .Zoom = Zoom_.Position(),
                 .Moving = Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving(),
                 .Presets = {}};
  for (const auto& [slot, preset] : Presets_) head.Presets[slot] = preset.Name;
  return head;
}

Toshiba::HeadState Toshiba::Head() const {
  const std::lock_guard lock(Mutex_);
  return Now();
}

nlohmann::json Toshiba::State() const {
  const std::lock_guard lock(Mutex_);
  const HeadState head = Now();
  auto presets = nlohmann::json::object();
  for (const auto& [slot, preset] : Presets_)
    presets[std::to_string(slot)] = {{"name", preset.Name}, {"pan", preset.Pan}, {"tilt", preset.Tilt}};
  return {{"model", Model_.Name},
          {"pan", Pan_.Position()},
          {"tilt", Tilt_.Position()},
          {"zoom", head.Zoom},
          {"degrees", {{"pan", head.Pan}, {"tilt", head.Tilt}}},
          {"moving", head.Moving},
          {"presets", presets}};
}

const Make Toshiba::AtShell = {"toshiba", "Toshiba IK-WB camera (HTTP)", ByModel<Toshiba>};

}  // namespace ptzsim
