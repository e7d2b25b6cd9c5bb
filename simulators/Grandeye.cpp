#include "simulators/Grandeye.h"

#include <nlohmann/json.hpp>

#include "simulators/engine/Make.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Motion.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

constexpr int MostViews = 4;
constexpr Motion::Range TiltRange{0, 90};
constexpr double Level = 45;         // tilt of the horizon
constexpr double ZoomStep = 3446.5;  // of which the widest picture is four from the closest
constexpr Motion::Range ZoomRange{1, 1 + 4 * ZoomStep};
constexpr Motion::Range ZoomStepRange{-9999, 9999};
constexpr double TurnSpeed = 90, ZoomSpeed = 2 * ZoomStep;  // per second

HTTPReply Refused(const std::string& why) {
  return {.Status = 400, .Body = "Bad request\n", .Violation = why};
}

}  // namespace

struct Grandeye::View {
  View(const Clock& clock, int index)
      : Pan(clock, 62.5 - 31 * index, Motion::Endless, TurnSpeed),
        Tilt(clock, 38.25 - 7 * index, TiltRange, TurnSpeed),
        Zoom(clock, 1 + ZoomStep * (1.5 + 0.25 * index), ZoomRange, ZoomSpeed) {}

  /// As the camera tells it, names included.
  std::string Row(const std::string& name, const std::string& index) const {
    if (name == "vcamapan" + index)
      return "vcamAPan" + index + "=" + Decimal(Wrapped(Pan.Position(), -180), 2) + "\n";
    if (name == "vcamatilt" + index) return "vcamATilt" + index + "=" + Decimal(Tilt.Position(), 2) + "\n";
    if (name == "vcamazoom" + index) return "vcamAZoom" + index + "=" + Decimal(Zoom.Position(), 2) + "\n";
    return {};
  }
  bool Moving() const { return Pan.Moving() || Tilt.Moving() || Zoom.Moving(); }

  Motion Pan, Tilt, Zoom;
};

struct GrandeyeRules {
  using View = Grandeye::View;

  static void Pan(View& v, Argument& a) { v.Pan.TurnTo(a.First); }
  static void Tilt(View& v, Argument& a) { v.Tilt.MoveTo(a.First); }
  static void Zoom(View& v, Argument& a) { v.Zoom.MoveBy(a.First); }

  static constexpr Rule<View> All[] = {
      {"pan", 1, Pan, Takes::Whole, Motion::Endless},
      {"tilt", 1, Tilt, Takes::Whole, TiltRange},
      {"rzoom", 1, Zoom, Takes::Whole, ZoomStepRange},
  };
};

Grandeye::Grandeye(Options options)
    : Simulator(options.Clock),
      Views_(Several(options.Views, MostViews, "views", [this](int i) { return View(Time(), i); })),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

Grandeye::~Grandeye() = default;

HTTPReply Grandeye::Answer(const Request& request) {
  const Query query(request.Target);
  if (query.Path == "/com/ptz.cgi") return Control(query);
  if (query.Path == "/getparam.cgi") return Tell(query);
  return {.Status = 404, .Violation = "no such page: " + request.Target};
}

HTTPReply Grandeye::Control(const Query& query) {
  const auto index = IndexOf(query, "camera", Views_.size());
  if (!index) return Refused("no such camera: " + query.Text);
  const Outcome outcome = Obey(GrandeyeRules::All, Views_[*index], 1, query, {"camera"});
  return outcome.Wrong.empty() ? HTTPReply::Nothing() : Refused(outcome.Wrong + ": " + query.Text);
}

HTTPReply Grandeye::Tell(const Query& query) const {
  std::string rows;
  for (const auto& [name, value] : query.Pairs) {
    std::string row;
    for (std::size_t i = 0; i < Views_.size() && row.empty(); ++i)
      row = Views_[i].Row(name, std::to_string(i));
    if (row.empty() || !value.empty()) return Refused("no such parameter: " + name);
    rows += row;
  }
  return rows.empty() ? Refused("no parameter is named") : HTTPReply::Text(rows);
}

Grandeye::HeadState Grandeye::Head(int camera) const {
  const std::lock_guard lock(Mutex_);
  const View& v = Views_.at(static_cast<std::size_t>(camera - 1));
  return {-Wrapped(v.Pan.Position(), -180), v.Tilt.Position() - Level, v.Zoom.Position(), v.Moving()};
}

nlohmann::json Grandeye::State() const {
  const std::lock_guard lock(Mutex_);
  nlohmann::json views = nlohmann::json::array();
  for (const View& v : Views_) {
    views.push_back({{"camera", views.size() + 1},
                     {"pan", Wrapped(v.Pan.Position(), -180)},
                     {"tilt", v.Tilt.Position()},
                     {"zoom", v.Zoom.Position()},
                     {"moving", v.Moving()}});
  }
  return {{"views", std::move(views)}};
}

const Make Grandeye::AtShell = {"grandeye", "Grandeye camera with several views (HTTP)", [](Shell& shell) {
                                  const auto options = std::make_shared<Options>();
                                  shell.Number("--views", options->Views, 1, MostViews,
                                               "How many views the camera has");
                                  return From<Grandeye>(options);
                                }};

}  // namespace ptzsim
