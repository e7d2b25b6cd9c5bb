#include "simulators/Toshiba.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>

namespace ptzsim {
namespace {

/// The way of an axis in camera units, which count from 0, and in degrees.
struct Scale {
  int Last;           // unit
  double Start, End;  // degrees at 0 and at the last unit

  Motion::Range Range() const { return {0, 0.0 + Last}; }
  double Degrees(double units) const { return Start + units * (End - Start) / Last; }
  double PerSecond(double degrees) const { return std::abs(degrees * Last / (End - Start)); }
  bool Has(long long unit) const { return unit >= 0 && unit <= Last; }
};

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
  bool Grid;
  Scale Pan, Tilt;
  double StartPan, StartTilt;  // units

  static const Model All[];
  static const Model& Find(std::string_view name);
};

constinit const Toshiba::Model Toshiba::Model::All[] = {
    {"IK-WB01", true, {16, -56, 56}, {10, 5, -49}, 10, 6},
    {"IK-WB11", true, {16, -56, 56}, {10, 5, -49}, 9, 2},
    {"IK-WB15", false, {7716, -175, 175}, {2617, 30, -90}, 4321, 987},
    {"IK-WB21", false, {7716, -175, 175}, {2617, 30, -90}, 3210, 1098},
};

const Toshiba::Model& Toshiba::Model::Find(std::string_view name) {
  const auto found =
      std::find_if(std::begin(All), std::end(All), [&](const Model& m) { return m.Name == name; });
  if (found == std::end(All)) throw std::invalid_argument("no model is called \"" + std::string(name) + "\"");
  return *found;
}

namespace {

long long Whole(const std::string& name, const std::string& text) {
  long long value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end)
    throw std::invalid_argument(name + "=" + text + " is not a whole number");
  return value;
}

int Slot(const std::string& name, long long number) {
  if (number < 1 || number > Slots) throw std::invalid_argument(name + " names no preset");
  return static_cast<int>(number);
}

void Demand(const std::string& name, const std::string& text, const std::string& wanted) {
  if (text != wanted) throw std::invalid_argument(name + "=" + text + " is not " + wanted);
}

}  // namespace

/// The pages with the parameters each wants. They throw std::invalid_argument on values that no such camera
/// takes, before anything moves.
struct ToshibaPages {
  using Values = Toshiba::Values;
  struct Page {
    bool Grid;
    std::string_view Path;
    std::vector<std::string_view> Names;
    HTTPReply (*Do)(Toshiba&, const Values&);
  };

  static HTTPReply TellPoint(Toshiba& t, const Values&) {
    const long point = std::lround(t.Pan_.Position()) * 256 + std::lround(t.Tilt_.Position());
    return HTTPReply::Text("PTPOINT " + std::to_string(point) + "\r\n", "text/html");
  }

  static HTTPReply GoToPoint(Toshiba& t, const Values& values) {
    const long long point = Whole("cont_3", values[0]);
    const long long pan = point / 256 - GridOffset, tilt = point % 256 - GridOffset;
    if (!t.Model_.Pan.Has(pan) || !t.Model_.Tilt.Has(tilt))
      throw std::invalid_argument("cont_3=" + values[0] + " is no point of the grid");
    Demand("ok", values[1], "dummy.htm");  // the page to be answered with
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

  static HTTPReply StepZoom(Toshiba& t, const Values& values) {
    Demand("type", values[0], "Set");
    if (values[1] != "Tele" && values[1] != "Wide")
      throw std::invalid_argument("Zoom=" + values[1] + " is neither Tele nor Wide");
    t.Zoom_.MoveBy(values[1] == "Tele" ? ZoomStep : -ZoomStep);
    return HTTPReply::Text(Taken);
  }

  static HTTPReply StorePreset(Toshiba& t, const Values& values) {
    const auto dash = std::min(values[0].find('-'), values[0].size());
    Demand("type", values[0].substr(0, dash), "PresetNumber");
    const int slot = Slot("type", Whole("type", values[0].substr(std::min(dash + 1, values[0].size()))));
    if (values[1].empty()) throw std::invalid_argument("PresetName is empty");
    const long long pan = Whole("PanPosition", values[2]), tilt = Whole("TiltPosition", values[3]);
    if (!t.Model_.Pan.Has(pan) || !t.Model_.Tilt.Has(tilt)) return HTTPReply::Text(Refused);
    t.Presets_[slot] = {values[1], static_cast<double>(pan), static_cast<double>(tilt)};
    return HTTPReply::Text(Taken);
  }

  /// The number's high byte says what to do with the preset in its low byte.
  static HTTPReply UsePreset(Toshiba& t, const Values& values) {
    enum { Recall = 1, Store, Delete };
    const long long number = Whole("cont_4", values[0]), action = number / 256;
    if (action < Recall || action > Delete)
      throw std::invalid_argument("cont_4=" + values[0] + " does nothing with a preset");
    const int slot = Slot("cont_4", number % 256);
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

  static const std::vector<Page>& All() {
    static const std::vector<Page> all = {
        {true, "/getcurrentptpointapi.htm", {}, TellPoint},
        {true, "/directmoveapi.cgi", {"cont_3", "ok"}, GoToPoint},
        {false, "/api/wbgetptzposition.cgi", {}, TellPosition},
        {false, "/api/wbsetzoom.cgi", {"type", "Zoom"}, StepZoom},
        {false, "/api/wbsetptpreset.cgi", {"type", "PresetName", "PanPosition", "TiltPosition"}, StorePreset},
        {false, "/api/wbpresetapi.cgi", {"cont_4"}, UsePreset},
    };
    return all;
  }
};

std::vector<std::string> Toshiba::Models() {
  std::vector<std::string> names;
  for (const Model& model : Model::All) names.emplace_back(model.Name);
  return names;
}

Toshiba::Toshiba() : Toshiba(Options()) {}

Toshiba::Toshiba(const Options& options)
    : Simulator(options.Clock),
      Model_(Model::Find(options.Model)),
      Pan_(Time(), Model_.StartPan, Model_.Pan.Range(), Model_.Pan.PerSecond(TurnSpeed)),
      Tilt_(Time(), Model_.StartTilt, Model_.Tilt.Range(), Model_.Tilt.PerSecond(TurnSpeed)),
      Zoom_(Time(), 340, ZoomRange, ZoomSpeed),
      Server_([this](const Request& r) { return Answer(r); }, {.Port = options.Port}, Log(), Faults()) {
  if (!Model_.Grid) Presets_ = {{3, {"Main gate", 1234, 567}}, {Slots, {"Car park", 6543, 1765}}};
}

Toshiba::~Toshiba() = default;

HTTPReply Toshiba::Answer(const Request& request) {
  const std::lock_guard lock(Mutex_);
  const Query query(request.Target);
  if (request.Method != "GET") return {.Status = 501, .Violation = "method " + request.Method};
  const auto& pages = ToshibaPages::All();
  const auto page = std::find_if(pages.begin(), pages.end(), [&](const auto& p) {
    return p.Grid == Model_.Grid && p.Path == query.Path;
  });
  if (page == pages.end()) return {.Status = 404, .Violation = "no such page: " + request.Target};
  try {
    Values values;
    for (const auto& name : page->Names)
      if (const auto value = query.Find(name)) values.push_back(*value);
    if (values.size() != page->Names.size() || query.Pairs.size() != values.size())
      throw std::invalid_argument("not the parameters of that page");
    return page->Do(*this, values);
  } catch (const std::invalid_argument& wrong) {
    HTTPReply reply = Model_.Grid ? HTTPReply{.Status = 400} : HTTPReply::Text(Refused);
    reply.Violation = wrong.what() + (": " + request.Target);
    return reply;
  }
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

}  // namespace ptzsim
