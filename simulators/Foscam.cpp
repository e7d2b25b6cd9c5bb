#include "simulators/Foscam.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <utility>

#include "simulators/engine/Make.h"

namespace ptzsim {

/// A direction with its number and its name.
struct Foscam::Way {
  int Number;
  std::string_view Name;
  int Pan, Tilt;

  bool Diagonal() const { return Pan != 0 && Tilt != 0; }
  bool Stops() const { return Pan == 0 && Tilt == 0; }
  static const Way All[];
};

namespace {

// Of the older camera. Each direction has a stop of its own, and any of them ends whatever runs.
constexpr int Stop = 5, OtherStops[] = {1, 3, 7};
constexpr int ZoomCommands[] = {16, 17, 18, 19};  // acknowledged by a head without zoom

}  // namespace

constinit const Foscam::Way Foscam::Way::All[] = {
    {0, "ptzMoveUp", 0, 1},
    {2, "ptzMoveDown", 0, -1},
    {4, "ptzMoveLeft", -1, 0},
    {6, "ptzMoveRight", 1, 0},
    {90, "ptzMoveTopLeft", -1, 1},
    {91, "ptzMoveTopRight", 1, 1},
    {92, "ptzMoveBottomLeft", -1, -1},
    {93, "ptzMoveBottomRight", 1, -1},
    {Stop, "ptzStopRun", 0, 0},
};

namespace {

constexpr Motion::Range PanRange{-150, 150}, TiltRange{-60, 90};
constexpr double TurnSpeed = 60;                     // degrees per second, to a preset or by a step
constexpr double OlderSpeed = 25;                    // of the older camera's continuous motions
constexpr double Speeds[] = {150, 100, 60, 30, 12};  // degrees per second by setPTZSpeed
constexpr double DiagonalShare = 0.75;               // of the speed, for each axis on a diagonal
constexpr int FirstPreset = 30, Slots = 16;          // an even number stores and the next recalls

// What an HD camera answers.
enum Result { Done = 0, BadFormat = -1, WrongUser = -2, Failed = -4 };

// The places that an HD camera comes with, beside those that are saved.
const std::map<std::string, std::array<double, 2>> Places = {
    {"LeftMost", {-150, 15}}, {"RightMost", {150, 15}}, {"TopMost", {5, 90}}, {"BottomMost", {5, -60}}};
const std::map<std::string, std::array<double, 2>> SavedBefore = {{"4", {-72.5, 18.75}}};

// What the older camera tells everybody.
constexpr char Status[] =
    "var id='000DC5D0A1B2';\nvar sys_ver='11.37.2.54';\nvar app_ver='2.4.10.3';\nvar alias='Yard';\n"
    "var now=1411036412;\nvar tz=-3600;\nvar alarm_status=0;\nvar ddns_status=0;\nvar upnp_status=0;\n";

// What an HD camera tells its users.
constexpr char Information[] =
    "    <productName>FI9826W</productName>\n    <devName>Yard</devName>\n"
    "    <firmwareVer>2.11.1.5</firmwareVer>\n";

HTTPReply CGIResult(int result, const std::string& told = "") {
  return HTTPReply::Text("<CGI_Result>\n    <result>" + std::to_string(result) + "</result>\n" + told +
                         "</CGI_Result>\n");
}

}  // namespace

Foscam::Foscam(const Options& options)
    : Simulator(options.Clock),
      Kind_(options.Generation),
      User_(options.User),
      Password_(options.Password),
      Pan_(Time(), 21.5, PanRange, TurnSpeed),
      Tilt_(Time(), -8.25, TiltRange, TurnSpeed),
      Presets_(Kind_ == Kind::HD ? Places : SavedBefore),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

HTTPReply Foscam::Answer(const Request& request) {
  const Query query(request.Target, true);
  const bool hd = Kind_ == Kind::HD;
  if (!hd && request.Target == "/get_status.cgi") return HTTPReply::Text(Status);
  if (query.Path != (hd ? "/cgi-bin/CGIProxy.fcgi" : "/decoder_control.cgi"))
    return {.Status = 404, .Violation = "no such page: " + request.Target};
  std::string wrong;
  HTTPReply reply;
  if (!hd) {
    wrong = ObeyNumbered(query);
    reply = HTTPReply::Text(wrong.empty() ? "ok.\n" : "error: illegal params.\n");
  } else {
    const int result = ObeyNamed(query, wrong);
    reply = CGIResult(result, result == Done && query.Find("cmd") == "getDevInfo" ? Information : "");
  }
  if (!wrong.empty()) reply.Violation = wrong + ": " + query.Text;
  return reply;
}

/// Returns what was wrong.
std::string Foscam::ObeyNumbered(const Query& query) {
  const auto command = Number(query.Find("command").value_or(""));
  if (!command) return "the command is missing or not a number";
  const auto onestep = query.Find("onestep"), degree = query.Find("degree");
  const bool step = query.Pairs.size() == 3 && onestep == "1" && degree;
  if (!step && query.Pairs.size() != 1) return "a command goes alone, or with onestep=1 and a degree";

  const auto is = [&](int number) { return *command == number; };
  if (!step && std::ranges::any_of(ZoomCommands, is)) return {};
  const double number = std::ranges::any_of(OtherStops, is) ? Stop : *command;
  const auto way = std::find_if(std::begin(Way::All), std::end(Way::All),
                                [&](const Way& w) { return w.Number == number; });
  if (way == std::end(Way::All)) {
    const double code = *command - FirstPreset;
    if (step || code < 0 || code >= 2 * Slots || code != std::floor(code)) return "no such command";
    const std::string slot = Decimal(std::floor(code / 2), 0);
    if (std::fmod(code, 2) == 0) {
      Save(slot);
    } else {
      Recall(slot);  // an empty slot is acknowledged all the same
    }
    return {};
  }
  if (!step) return Run(*way, OlderSpeed), std::string();

  const auto angle = Number(*degree);
  if (!angle) return "the degree is not a number";
  if (way->Stops()) return "a stop has no degree";
  if (*angle < 0 && !way->Diagonal()) return "the degree is negative";
  Running_ = nullptr;
  Pan_.Stop(), Tilt_.Stop();
  const double turn = std::max(*angle, 0.0);
  Pan_.MoveBy(way->Pan * turn), Tilt_.MoveBy(way->Tilt * turn);
  return {};
}

int Foscam::ObeyNamed(const Query& query, std::string& wrong) {
  if (!User_.empty() && (query.Find("usr") != User_ || query.Find("pwd").value_or("") != Password_))
    return WrongUser;
  const auto command = query.Find("cmd");
  std::vector<std::pair<std::string, std::string>> parameters;
  for (const auto& pair : query.Pairs)
    if (pair.first != "cmd" && pair.first != "usr" && pair.first != "pwd") parameters.push_back(pair);
  const auto bad = [&](const std::string& why) { return wrong = why, BadFormat; };
  // The only parameter, when it is called that.
  const auto parameter = [&](std::string_view name) -> std::optional<std::string> {
    if (parameters.size() != 1 || parameters[0].first != name || parameters[0].second.empty())
      return std::nullopt;
    return parameters[0].second;
  };
  if (!command) return bad("no command");

  if (command == "setPTZSpeed") {
    const auto speed = Number(parameter("speed").value_or(""));
    if (!speed || *speed != std::floor(*speed) || *speed < 0 || *speed >= std::size(Speeds))
      return bad("setPTZSpeed takes a speed from 0 to 4");
    Speed_ = static_cast<int>(*speed);
    if (Running_) Run(*Running_, Speeds[Speed_]);
    return Done;
  }
  const bool adds = command == "ptzAddPresetPoint";
  if (adds || command == "ptzGotoPresetPoint") {
    const auto name = parameter("name");
    if (!name) return bad(*command + " takes a name");
    if (!adds) return Recall(*name) ? Done : Failed;
    if (Presets_.contains(*name) || Presets_.size() == Places.size() + Slots) return Failed;
    return Save(*name), Done;
  }
  if (command == "getDevInfo" && parameters.empty()) return Done;
  const bool resets = command == "ptzReset";
  const auto way =
      std::find_if(std::begin(Way::All), std::end(Way::All), [&](const Way& w) { return command == w.Name; });
  if (!resets && way == std::end(Way::All)) return bad("no such command");
  if (!parameters.empty()) return bad(*command + " takes no parameters");
  if (resets) {
    Running_ = nullptr;
    Pan_.MoveTo(0), Tilt_.MoveTo(0);
  } else {
    Run(*way, Speeds[Speed_]);
  }
  return Done;
}

void Foscam::Run(const Way& way, double speed) {
  Running_ = way.Stops() ? nullptr : &way;
  const double velocity = speed * (way.Diagonal() ? DiagonalShare : 1);
  Pan_.Run(way.Pan * velocity), Tilt_.Run(way.Tilt * velocity);
}

/// False when nobody has saved it.
bool Foscam::Recall(const std::string& name) {
  const auto preset = Presets_.find(name);
  if (preset == Presets_.end()) return false;
  Running_ = nullptr;
  Pan_.MoveTo(preset->second[0]), Tilt_.MoveTo(preset->second[1]);
  return true;
}

Foscam::HeadState Foscam::Head() const {
  const std::lock_guard lock(Mutex_);
  return {Pan_.Position(), Tilt_.Position(), Pan_.Moving() || Tilt_.Moving(), Speed_, Presets_};
}

nlohmann::json Foscam::State() const {
  const HeadState head = Head();
  nlohmann::json state = {
      {"pan", head.Pan}, {"tilt", head.Tilt}, {"moving", head.Moving}, {"presets", head.Presets}};
  if (Kind_ == Kind::HD) state["speed"] = head.Speed;
  return state;
}

const Make Foscam::AtShell = {"foscam", "Foscam camera with numbered commands (HTTP)", Plainly<Foscam>};

const Make Foscam::HDAtShell = {
    "foscamhd", "Foscam HD camera (HTTP)",
    [](Shell& shell) {
      const auto options = std::make_shared<Options>(Options{.Generation = Kind::HD});
      shell.Text("--usr", options->User, "Demand this user in the query, as usr=... and pwd=...");
      shell.Text("--pwd", options->Password, "Password of that user");
      return From<Foscam>(options);
    },
    Line::HTTP, "Foscam"};

}  // namespace ptzsim
