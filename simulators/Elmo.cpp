#include "simulators/Elmo.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Pages.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

enum Series : unsigned { Series200 = 1, Series400 = 2, PTC402 = 4 };

constexpr double TurnSpeed = 100;                 // degrees per second
constexpr double SecondsOfZoom = 3;               // from end to end
constexpr Motion::Range LensRange{0, 1000};       // iris and focus
constexpr double LensSpeed = 500, LensStep = 50;  // units; a step of zoom too where it goes by steps
constexpr std::array<double, 3> FirstPreset{4356, 2304, 260};  // pan, tilt, zoom
constexpr std::array<double, 3> SecondPreset{13068, 1152, 715};

}  // namespace

struct Elmo::Model {
  std::string_view Name;
  Series Kind;
  Scale Pan, Tilt;
  Motion::Range Zoom;  // units
  double ZoomStep;     // units of one of the steps that zoom is given in
  int Slots;           // of presets
  int HomeSlot;        // 0: home is not a preset

  static const Model All[];
};

constinit const Elmo::Model Elmo::Model::All[] = {
    {"200", Series200, {17424, -150, 150}, {6912, 30, -90}, {0, 1000}, LensStep, 6, 0},
    {"400", Series400, {18550, -175, 175}, {11024, 16, -196}, {64, 9568}, 432, 16, 17},
    {"PTC-402C", PTC402, {18550, -175, 175}, {11024, 16, -196}, {0, 7524}, 418, 0, 0},
};

namespace {

/// May have decimals; beyond the tele end the lens stops there.
double ZoomValue(const std::string& text, Motion::Range range) {
  return std::min(NumberOf(text, {range.Min, Motion::Any.Max}), range.Max);
}

double Position(const std::string& text, const Motion& motion) {
  return static_cast<double>(WholeOf(text, motion.Limits()));
}

/// A motor position as the camera tells it.
std::string Steps(double units) { return Decimal(units, 0); }

/// Always with its one digit: "0.0".
std::string OneDecimal(double value) {
  const auto text = Decimal(value, 1);
  return text.find('.') == text.npos ? text + ".0" : text;
}

}  // namespace

/// What the command pages know. Each answers whether the camera took it, and throws std::invalid_argument on
/// values that no such camera takes, before anything moves.
struct ElmoCommands {
  static bool Pan(Elmo& e, const Values& values) {
    e.Pan_.MoveTo(Position(values[0], e.Pan_));
    return true;
  }
  static bool Tilt(Elmo& e, const Values& values) {
    e.Tilt_.MoveTo(Position(values[0], e.Tilt_));
    return true;
  }
  static bool Zoom(Elmo& e, const Values& values) {
    e.Zoom_.MoveTo(ZoomValue(values[0], e.Zoom_.Limits()));
    return true;
  }
  static bool PanTilt(Elmo& e, const Values& values) {
    const double pan = Position(values[0], e.Pan_), tilt = Position(values[1], e.Tilt_);
    e.Pan_.MoveTo(pan), e.Tilt_.MoveTo(tilt);
    return true;
  }
  static bool PanTiltZoom(Elmo& e, const Values& values) {
    const double zoom = ZoomValue(values[2], e.Zoom_.Limits());
    PanTilt(e, values);
    e.Zoom_.MoveTo(zoom);
    return true;
  }

  static bool StepOrAuto(Motion& motion, bool* automatic, const std::string& text, char less, char more) {
    const bool step = text.size() == 1 && (text[0] == less || text[0] == more);
    if (!step && (automatic == nullptr || text != "4"))
      throw std::invalid_argument("\"" + text + "\" is none of its numbers");
    if (automatic != nullptr) *automatic = !step;
    if (step) motion.MoveBy(text[0] == more ? LensStep : -LensStep);
    return true;
  }
  static bool ZoomStep(Elmo& e, const Values& values) {
    return StepOrAuto(e.Zoom_, nullptr, values[0], '3', '0');
  }
  static bool Iris(Elmo& e, const Values& values) {
    return StepOrAuto(e.Iris_, &e.IrisIsAuto_, values[0], '1', '3');
  }
  static bool Focus(Elmo& e, const Values& values) {
    return StepOrAuto(e.Focus_, &e.FocusIsAuto_, values[0], '0', '3');
  }

  static bool Recall(Elmo& e, const Values& values) {
    const int slot =
        static_cast<int>(WholeOf(values[0], {1, 0.0 + std::max(e.Model_.Slots, e.Model_.HomeSlot)}));
    if (slot == e.Model_.HomeSlot) return GoHome(e);
    const auto preset = e.Presets_.find(slot);
    if (preset == e.Presets_.end()) return false;
    const auto& [pan, tilt, zoom] = preset->second;
    e.Pan_.MoveTo(pan), e.Tilt_.MoveTo(tilt), e.Zoom_.MoveTo(zoom);
    return true;
  }
  static bool Store(Elmo& e, const Values& values) {
    const int slot = static_cast<int>(WholeOf(values[0], {1, 0.0 + e.Model_.Slots}));
    e.Presets_[slot] = {e.Pan_.Position(), e.Tilt_.Position(), e.Zoom_.Position()};
    return true;
  }
  static bool GoHome(Elmo& e) {
    e.Pan_.MoveTo(e.Model_.Pan.Units(0)), e.Tilt_.MoveTo(e.Model_.Tilt.Units(0));
    e.Zoom_.MoveTo(e.Model_.Zoom.Min);
    return true;
  }
  static bool Home(Elmo& e, const Values&) { return GoHome(e); }

  static constexpr Page<Elmo, bool> All[] = {
      {"/cgi-bin/ctrl?pana=*", Pan, Series200},
      {"/cgi-bin/ctrl?tlta=*", Tilt, Series200},
      {"/cgi-bin/ctrl?pana=*&tlta=*", PanTilt, Series200},
      {"/cgi-bin/ctrl?zoom=*", ZoomStep, Series200},
      {"/cgi-bin/ctrl?iris=*", Iris, Series200},
      {"/cgi-bin/ctrl?fcus=*", Focus, Series200},
      {"/cgi-bin/ctrl?prst=*", Recall, Series200},
      {"/cgi-bin/pmem?*", Store, Series200},
      {"/cgi-bin/set?c_span=*", Pan, Series400},
      {"/cgi-bin/set?c_tilt=*", Tilt, Series400},
      {"/cgi-bin/set?c_zoom=*", Zoom, Series400},
      {"/cgi-bin/set?c_prst=*", Recall, Series400},
      {"/cgi-bin/set?c_pmem=*", Store, Series400},
      {"/cgi-bin/exec?x_pospan=*&x_postilt=*&x_poszoom=*", PanTiltZoom, PTC402},
      {"/cgi-bin/exec?x_preprst=HOME", Home, PTC402},
  };
};

std::vector<std::string> Elmo::Models() { return NamesOf(Model::All); }

Elmo::Elmo(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Numbers_(options.Numbers),
      Pan_(Time(), 9841, Model_.Pan.Range(), Model_.Pan.PerSecond(TurnSpeed)),
      Tilt_(Time(), 1310, Model_.Tilt.Range(), Model_.Tilt.PerSecond(TurnSpeed)),
      Zoom_(Time(), 637, Model_.Zoom, Model_.Zoom.Max / SecondsOfZoom),
      Iris_(Time(), 420, LensRange, LensSpeed),
      Focus_(Time(), 580, LensRange, LensSpeed),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {
  if (Model_.Slots > 0) Presets_ = {{2, FirstPreset}, {5, SecondPreset}};
}

HTTPReply Elmo::Answer(const Request& request) {
  const Query query(request.Target);
  const Series kind = Model_.Kind;
  if (kind == Series200 && request.Target == "/cgi-bin/ctrl") return HTTPReply::Text("NG");
  if (kind == Series400 && request.Target == "/cgi-bin/list?group=pos") return HTTPReply::Text(List());
  if (kind == PTC402 && request.Target == "/cgi-bin/pget?g_pos") return HTTPReply::Text(XML(), "text/xml");

  const auto command = FindPage(ElmoCommands::All, query, kind);
  if (!command.KnowsPath) return {.Status = 404, .Violation = "no such page: " + request.Target};
  bool taken = false;
  std::string violation;
  try {
    if (!command.It) throw std::invalid_argument("no such command");
    taken = command.It->Do(*this, command.Given);
  } catch (const std::invalid_argument& wrong) {
    violation = wrong.what() + (": " + request.Target);
  }
  if (kind == PTC402 && !taken) return {.Status = 400, .Violation = violation};
  if (kind != Series400) return HTTPReply::Text(taken ? "OK" : "NG").Blaming(violation);
  return HTTPReply::Text(taken ? "command:set\r\nReturn:0\r\n" : "command:set\r\nReturn:1\r\n")
      .Blaming(violation);
}

/// With the rows that a reader has to pass over.
std::string Elmo::List() const {
  return "command:list\r\ngroup:pos\r\nc_tilt:" + Steps(Tilt_.Position()) +
         "\r\nc_span:" + Steps(Pan_.Position()) + "\r\nc_fcus:" + Steps(Focus_.Position()) +
         "\r\nc_zoom:" + Steps(Zoom_.Position()) + "\r\nReturn:0\r\n";
}

std::string Elmo::XML() const {
  const auto node = [&](const std::string& name, double units, const std::string& remark) {
    std::string text = Steps(units);
    if (Numbers_ == ElmoNumbers::Remarked) text += " (" + remark + ")";
    if (Numbers_ == ElmoNumbers::Bracketed) text = name + " (" + text + ")";
    return "<s_pos" + name + ">" + text + "</s_pos" + name + ">\r\n";
  };
  const HeadState now = Now();
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\r\n<pget>\r\n<pos>\r\n" +
         node("focus", now.Focus, "near") + node("pan", Pan_.Position(), OneDecimal(now.Pan)) +
         node("tilt", Tilt_.Position(), OneDecimal(now.Tilt)) +
         node("zoom", now.Zoom, OneDecimal(now.Zoom / Model_.ZoomStep)) + "</pos>\r\n</pget>\r\n";
}

Elmo::HeadState Elmo::Now() const {
  HeadState head{.Pan = Model_.Pan.Degrees(Pan_.Position()),
                 .Tilt = Model_.Tilt.Degrees(Tilt_.Position()),
                 .Zoom = Zoom_.Position(),
                 .Iris = Iris_.Position(),
                 .Focus = Focus_.Position(),
                 .IrisIsAuto = IrisIsAuto_,
                 .FocusIsAuto = FocusIsAuto_,
                 .Moving = false,
                 .Presets = {}};
  for (const Motion* motion : {&Pan_, &Tilt_, &Zoom_, &Iris_, &Focus_}) head.Moving |= motion->Moving();
  for (const auto& preset : Presets_) head.Presets.push_back(preset.first);
  return head;
}

Elmo::HeadState Elmo::Head() const {
  const std::lock_guard lock(Mutex_);
  return Now();
}

nlohmann::json Elmo::State() const {
  const std::lock_guard lock(Mutex_);
  const HeadState head = Now();
  return {{"model", Model_.Name},
          {"pan", Pan_.Position()},
          {"tilt", Tilt_.Position()},
          {"zoom", head.Zoom},
          {"degrees", {{"pan", head.Pan}, {"tilt", head.Tilt}}},
          {"iris", head.Iris},
          {"focus", head.Focus},
          {"autoiris", head.IrisIsAuto},
          {"autofocus", head.FocusIsAuto},
          {"moving", head.Moving},
          {"presets", head.Presets}};
}

const Make Elmo::AtShell = {"elmo", "Elmo 200 or 400 series or PTC-402C camera (HTTP)", [](Shell& shell) {
                              using enum ElmoNumbers;
                              const auto options = WithModel<Elmo>(shell);
                              shell.Choice(
                                  "--numbers", options->Numbers,
                                  {{"plain", Plain}, {"remarked", Remarked}, {"bracketed", Bracketed}},
                                  "How a PTC-402C writes its position; remarked when not given");
                              return From<Elmo>(options);
                            }};

}  // namespace ptzsim
