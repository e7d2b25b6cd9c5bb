#include "simulators/Vivotek.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

namespace ptzsim {

struct Vivotek::Model {
  std::string_view Name;
  bool Newer;
  double Width, Height;           // of the picture that clicks are in, pixels
  double AcrossDegree, UpDegree;  // pixels per degree
  Motion::Range Pan, Tilt;        // degrees

  static const Model All[];
  static const Model& Find(std::string_view name);
};

constinit const Vivotek::Model Vivotek::Model::All[] = {
    {"PT7135", false, 320, 240, 7.74, 6, {-135, 135}, {-90, 45}},
    {"PT31x", false, 352, 240, 7.74, 6, {-135, 135}, {-45, 45}},
    {"PZ61x", false, 352, 240, 7.74, 6, {-135, 135}, {-45, 90}},
    {"PZ7132", true, 704, 576, 704.0 / 48, 576.0 / 48, {-175, 175}, {-35, 90}},
    {"SD8362", true, 704, 576, 704.0 / 48, 576.0 / 48, {-180, 180}, {-90, 0}},
};

const Vivotek::Model& Vivotek::Model::Find(std::string_view name) {
  const auto found =
      std::find_if(std::begin(All), std::end(All), [&](const Model& m) { return m.Name == name; });
  if (found == std::end(All)) throw std::invalid_argument("no model is called \"" + std::string(name) + "\"");
  return *found;
}

namespace {

constexpr Motion::Range ZoomRange{0, 1000};
constexpr double TurnSpeed = 120, ZoomSpeed = 400;     // per second
constexpr double TurnStep = 5, ZoomStep = 50;          // of move=left and the like, zoom=tele and wide
constexpr double TurnPerSpeed = 6, ZoomPerSpeed = 40;  // per second and unit of vs and zs
constexpr double FastestTurn = 10, FastestZoom = 10;   // beyond it the camera goes no faster
constexpr std::size_t Slots = 128;
constexpr int Abilities = 7;  // pan, tilt, zoom

double NumberIn(const std::string& name, const std::string& text) {
  const auto number = Number(text);
  if (!number) throw std::invalid_argument(name + "=" + text + " is not a number");
  return *number;
}

void Demand(const std::string& name, const std::string& text, const std::string& wanted) {
  if (text != wanted) throw std::invalid_argument(name + "=" + text + " is not " + wanted);
}

std::string Size(double width, double height) { return Decimal(width, 0) + "x" + Decimal(height, 0); }

}  // namespace

/// What camctrl.cgi knows: sets of parameters that come together. Each throws std::invalid_argument on values
/// that no such camera takes.
struct VivotekCommands {
  using Values = Vivotek::Values;
  struct Command {
    bool Older, Newer;
    std::vector<std::string> Names;
    void (*Do)(Vivotek&, const Values&);
  };

  static void Move(Vivotek& v, const Values& values) {
    const std::string& where = values[0];
    if (where == "home") return v.Pan_.MoveTo(0), v.Tilt_.MoveTo(0);
    if (where == "left") return v.Pan_.MoveBy(-TurnStep);
    if (where == "right") return v.Pan_.MoveBy(TurnStep);
    if (where == "up") return v.Tilt_.MoveBy(TurnStep);
    if (where == "down") return v.Tilt_.MoveBy(-TurnStep);
    throw std::invalid_argument("move=" + where + " is unknown");
  }

  static double Sign(const std::string& name, const std::string& text) {
    if (text == "tele") return 1;
    if (text == "wide") return -1;
    throw std::invalid_argument(name + "=" + text + " is neither tele nor wide");
  }
  static void Zoom(Vivotek& v, const Values& values) { v.Zoom_.MoveBy(Sign("zoom", values[0]) * ZoomStep); }

  static void Click(Vivotek& v, const Values& values) {
    v.Click(NumberIn("x", values[0]), NumberIn("y", values[1]));
  }

  static void ClickInVideo(Vivotek& v, const Values& values) {
    const std::string size = Size(v.Model_.Width, v.Model_.Height);
    Demand("resolution", values[2], size), Demand("videosize", values[3], size);
    Demand("video", values[4], "0"), Demand("stretch", values[5], "0");
    Click(v, values);
  }

  // vx and vy are the direction, vs is the speed in it.
  static void Run(Vivotek& v, const Values& values) {
    const double x = NumberIn("vx", values[0]), y = NumberIn("vy", values[1]);
    const double speed = NumberIn("vs", values[2]), length = std::hypot(x, y);
    if (speed < 0 || (speed == 0) != (length == 0))
      throw std::invalid_argument("a direction goes with a speed, and a stop with neither");
    const double velocity = length == 0 ? 0 : std::min(speed, FastestTurn) * TurnPerSpeed / length;
    v.Pan_.Run(velocity * x), v.Tilt_.Run(velocity * y);
  }

  static void RunZoom(Vivotek& v, const Values& values) {
    const double speed = NumberIn("zs", values[1]);
    if (speed < 0) throw std::invalid_argument("zs=" + values[1] + " is below 0");
    v.Zoom_.Run(Sign("zooming", values[0]) * std::min(speed, FastestZoom) * ZoomPerSpeed);
  }

  static const std::vector<Command>& All() {
    static const std::vector<Command> all = {
        {true, true, {"move"}, Move},
        {true, true, {"zoom"}, Zoom},
        {true, false, {"x", "y"}, Click},
        {false, true, {"x", "y", "resolution", "videosize", "video", "stretch"}, ClickInVideo},
        {true, true, {"vx", "vy", "vs"}, Run},
        {true, true, {"zooming", "zs"}, RunZoom},
    };
    return all;
  }
};

std::vector<std::string> Vivotek::Models() {
  std::vector<std::string> names;
  for (const Model& model : Model::All) names.emplace_back(model.Name);
  return names;
}

Vivotek::Vivotek() : Vivotek(Options()) {}

Vivotek::Vivotek(const Options& options)
    : Simulator(options.Clock),
      Model_(Model::Find(options.Model)),
      Pan_(Time(), 33.5, Model_.Pan, TurnSpeed),
      Tilt_(Time(), -14.25, Model_.Tilt, TurnSpeed),
      Zoom_(Time(), 421, ZoomRange, ZoomSpeed),
      Presets_{{"Main gate", {-52.25, -17, 610}}, {"Car park & ramp", {88, -9.5, 130}}},
      Server_([this](const Request& r) { return Answer(r); }, {.Port = options.Port}, Log(), Faults()) {}

Vivotek::~Vivotek() = default;

HTTPReply Vivotek::Answer(const Request& request) {
  const std::lock_guard lock(Mutex_);
  const Query query(request.Target, true);
  if (request.Method != "GET") return {.Status = 501, .Violation = "method " + request.Method};
  if (query.Path == "/cgi-bin/sysinfo.cgi" && query.Text.empty()) return HTTPReply::Text(Information());

  const auto refused = [&](const std::string& why) {
    return HTTPReply{.Status = 400, .Violation = why + ": " + request.Target};
  };
  const std::string control = Model_.Newer ? "/cgi-bin/viewer/camctrl.cgi" : "/cgi-bin/camctrl.cgi";
  const bool saves = Model_.Newer && query.Path == "/cgi-bin/operator/preset.cgi";
  const bool recalls = Model_.Newer && query.Path == "/cgi-bin/viewer/recall.cgi";
  if (query.Path != control && !saves && !recalls)
    return {.Status = 404, .Violation = "no such page: " + request.Target};
  if (query.Find(Model_.Newer ? "channel" : "cam") != (Model_.Newer ? "0" : "1"))
    return refused("the camera is not named");
  if (!saves && !recalls) return Obey(query);

  const auto name = query.Find(saves ? "addpos" : "recall");
  if (query.Pairs.size() != 2 || !name || name->empty()) return refused("no preset is named");
  auto preset = std::find_if(Presets_.begin(), Presets_.end(), [&](auto& p) { return p.Name == *name; });
  if (preset == Presets_.end()) {
    if (recalls || Presets_.size() == Slots) return {.Status = 400};
    preset = Presets_.insert(Presets_.end(), {*name, {}});
  }
  auto& [pan, tilt, zoom] = preset->Place;
  if (saves) {
    pan = Pan_.Position(), tilt = Tilt_.Position(), zoom = Zoom_.Position();
  } else {
    Pan_.MoveTo(pan), Tilt_.MoveTo(tilt), Zoom_.MoveTo(zoom);
  }
  return HTTPReply::Text("");
}

std::string Vivotek::Information() const {
  std::string text = "Model=" + std::string(Model_.Name) +
                     "\r\nFirmware=0203b\r\nptzenabled=" + std::to_string(Abilities) + "\r\n";
  for (std::size_t i = 0; Model_.Newer && i < Slots; ++i)
    text += "Preset" + std::to_string(i + 1) + "=" + (i < Presets_.size() ? Presets_[i].Name : "") + "\r\n";
  return text;
}

HTTPReply Vivotek::Obey(const Query& query) {
  for (const auto& command : VivotekCommands::All()) {
    if (!(Model_.Newer ? command.Newer : command.Older)) continue;
    Values values;
    for (const auto& name : command.Names)
      if (const auto value = query.Find(name)) values.push_back(*value);
    if (values.size() != command.Names.size() || query.Pairs.size() != values.size() + 1) continue;
    try {
      command.Do(*this, values);
      return HTTPReply::Text("");
    } catch (const std::invalid_argument& wrong) {
      return {.Status = 400, .Violation = wrong.what() + (": " + query.Text)};
    }
  }
  return {.Status = 400, .Violation = "no such command: " + query.Text};
}

/// Brings the clicked point to the middle. Pixels count from the upper left corner.
void Vivotek::Click(double x, double y) {
  Pan_.MoveBy((x - Model_.Width / 2) / Model_.AcrossDegree);
  Tilt_.MoveBy((Model_.Height / 2 - y) / Model_.UpDegree);
}

Vivotek::HeadState Vivotek::Head() const {
  const std::lock_guard lock(Mutex_);
  HeadState head{Pan_.Position(),
                 Tilt_.Position(),
                 Zoom_.Position(),
                 Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving(),
                 {}};
  if (Model_.Newer)
    for (const auto& preset : Presets_) head.Presets.push_back(preset.Name);
  return head;
}

nlohmann::json Vivotek::State() const {
  const HeadState head = Head();
  return {{"model", Model_.Name}, {"pan", head.Pan},       {"tilt", head.Tilt},
          {"zoom", head.Zoom},    {"moving", head.Moving}, {"presets", head.Presets}};
}

}  // namespace ptzsim
