#include "simulators/Panogenics.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

constexpr int ViewCount = 8, PresetCount = 8;
constexpr Motion::Range PanValues{-180, 360}, TiltRange{-90, 90}, ZoomRange{0, 500};
constexpr double TurnSpeed = 90, ZoomSpeed = 200;  // per second

/// A whole number from 1 to `most`; 0 for anything else.
int Index(const std::optional<std::string>& text, int most) {
  const auto number = WholeNumber(text.value_or("")).value_or(0);
  return number >= 1 && number <= most ? static_cast<int>(number) : 0;
}

}  // namespace

struct Panogenics::View {
  View(const Clock& clock, int index)
      : Pan(clock, 205 + 11 * index, Motion::Endless, TurnSpeed),
        Tilt(clock, -18 - 5 * index, TiltRange, TurnSpeed),
        Zoom(clock, 150 + 25 * index, ZoomRange, ZoomSpeed),
        Presets{{6, {"Loading bay", {97.0 + 7 * index, 31.0 + 2 * index, 265.0 + 20 * index}}}} {}

  bool Moving() const { return Pan.Moving() || Tilt.Moving() || Zoom.Moving(); }
  std::array<double, 3> Place() const {
    return {Wrapped(Pan.Position(), 0), Tilt.Position(), Zoom.Position()};
  }

  Motion Pan, Tilt, Zoom;
  std::map<int, Preset> Presets;
};

struct PanogenicsRules {
  using View = Panogenics::View;

  static void Pan(View& v, Argument& a) { v.Pan.TurnTo(a.First); }
  static void Tilt(View& v, Argument& a) { v.Tilt.MoveTo(a.First); }
  static void Zoom(View& v, Argument& a) { v.Zoom.MoveTo(a.First); }

  static constexpr Rule<View> All[] = {
      {"apan", 1, Pan, Takes::Whole, PanValues},
      {"atilt", 1, Tilt, Takes::Whole, Motion::Any},
      {"azoom", 1, Zoom, Takes::Whole, ZoomRange},
  };
};

Panogenics::Panogenics(Options options)
    : Simulator(options.Clock),
      Wrapped_(options.Wrapped),
      Views_(Several(ViewCount, ViewCount, "views", [this](int i) { return View(Time(), i); })),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

Panogenics::~Panogenics() = default;

HTTPReply Panogenics::Page(const std::string& text) const {
  if (!Wrapped_) return HTTPReply::Text(text);
  return HTTPReply::Text("<html><body>" + text + "</body></html>", "text/html");
}

HTTPReply Panogenics::Answer(const Request& request) {
  const Query query(request.Target);
  if (request.Target == "/admin/listcamparam.cgi") return Page("fw=3.1.7 mount=ceiling views=8");
  const bool turns = query.Path == "/ptz/ptz.cgi", tells = query.Path == "/ptz/listptz.cgi";
  const bool saves = query.Path == "/presets/setpreset.cgi",
             recalls = query.Path == "/presets/gotopreset.cgi";
  if (!turns && !tells && !saves && !recalls)
    return {.Status = 404, .Violation = "no such page: " + request.Target};

  std::string text, wrong;
  const int number = Index(query.Find("view"), ViewCount);
  if (number == 0) {
    wrong = "no such view";
  } else if (View& view = Views_[number - 1]; turns) {
    wrong = Obey(PanogenicsRules::All, view, 1, query, {"view"}).Wrong;
    text = "PTZ OK";
  } else if (tells) {
    if (query.Pairs.size() != 1) wrong = "unknown parameters";
    const auto [pan, tilt, zoom] = view.Place();
    text = "view=" + std::to_string(number) + " apan:" + std::to_string(std::lround(pan) % 360) +
           " atilt:" + Decimal(tilt, 0) + " azoom:" + Decimal(zoom, 0);
  } else {
    text = ObeyPreset(view, query, saves, wrong);
  }
  if (wrong.empty()) return Page(text);
  return Page(turns || tells ? "PTZ ERROR" : "PRESET ERROR").Blaming(wrong + ": " + request.Target);
}

std::string Panogenics::ObeyPreset(View& view, const Query& query, bool saves, std::string& wrong) {
  const int index = Index(query.Find("index"), PresetCount);
  const auto name = query.Find("name");
  if (index == 0) return wrong = "no such preset";
  if (saves) {
    if (query.Pairs.size() != 4 || query.Find("used") != "1" || !name || name->empty())
      return wrong = "a preset is saved with view, index, name and used=1";
    view.Presets[index] = {*name, view.Place()};
    return "PRESET OK";
  }
  if (query.Pairs.size() != 2) return wrong = "unknown parameters";
  const auto preset = view.Presets.find(index);
  if (preset == view.Presets.end()) return "PRESET ERROR";
  const auto& [pan, tilt, zoom] = preset->second.Place;
  view.Pan.TurnTo(pan), view.Tilt.MoveTo(tilt), view.Zoom.MoveTo(zoom);
  return "PRESET OK";
}

Panogenics::HeadState Panogenics::Head(int view) const {
  const std::lock_guard lock(Mutex_);
  const View& v = Views_.at(static_cast<std::size_t>(view - 1));
  return {Wrapped(v.Pan.Position(), -180), v.Tilt.Position(), v.Zoom.Position(), v.Moving(), v.Presets};
}

nlohmann::json Panogenics::State() const {
  const std::lock_guard lock(Mutex_);
  nlohmann::json views = nlohmann::json::array();
  for (const View& v : Views_) {
    const auto [pan, tilt, zoom] = v.Place();
    nlohmann::json presets = nlohmann::json::object();
    for (const auto& [index, preset] : v.Presets)
      presets[std::to_string(index)] = {{"name", preset.Name}, {"place", preset.Place}};
    nlohmann::json view = {{"view", views.size() + 1}, {"pan", pan}, {"tilt", tilt}, {"zoom", zoom}};
    view.update({{"moving", v.Moving()}, {"presets", std::move(presets)}});
    views.push_back(std::move(view));
  }
  return {{"views", std::move(views)}};
}

const Make Panogenics::AtShell = {
    "panogenics", "Panogenics camera with eight views (HTTP)", [](Shell& shell) {
      const auto options = std::make_shared<Options>();
      shell.Flag("--plain", options->Wrapped, false, "Answer with bare text in place of HTML pages");
      return From<Panogenics>(options);
    }};

}  // namespace ptzsim
