#include "simulators/Sanyo.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "simulators/engine/Make.h"
#include "simulators/engine/Pages.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

// Pan, tilt and zoom are counted in hundredths, as the camera tells them.
constexpr double PerUnit = 100;
constexpr Motion::Range PanRange{-17500, 17500}, TiltRange{-9000, 3000}, ZoomRange{100, 2200};
constexpr double PanSpeed = 12000, TiltSpeed = 9000, ZoomSpeed = 300;  // of steps and presets, per second

// A hundred percent are half the picture: 55 by 30 degrees.
constexpr double AcrossPercent = 55 * PerUnit / 2 / 100, UpPercent = 30 * PerUnit / 2 / 100;
constexpr double ZoomStep = 25;
constexpr int LargestStep = 100;  // percent; what is beyond is cut
constexpr int Backward = 2;       // in pan_dir and tilt_dir; 1 is right and up

constexpr int Presets = 255;
constexpr int FastestSpeed = 7;                          // 0 is the slowest
constexpr double PanPerSpeed = 600, TiltPerSpeed = 350;  // per second; the slowest has one of it

/// Codes of continuous motion. In between stand 9 to 11, those of the zoom.
struct Direction {
  int Code, Pan, Tilt;
};
constexpr Direction Directions[] = {{1, -1, 1},  {2, 0, 1},  {3, 1, 1},  {4, -1, 0}, {5, 1, 0},
                                    {6, -1, -1}, {7, 0, -1}, {8, 1, -1}, {12, 0, 0}};
constexpr int Tele = 9, Wide = 10, StopZoom = 11;

// liveimg.cgi?pol=1: sixteen bytes, among them the flags, then pan, tilt and zoom, then the picture.
constexpr char Head16[] = "\x01\x1E\x07\xD2\x34\x44\x0B\x2C\x58\x13\x61\x9F\x05\x80\x04\x38";
constexpr std::size_t HeadLength = 16, FlagsAt = 5;
constexpr char NoPanTilt = 0x01, NoZoom = 0x02;
constexpr long NotGiven = 0x7FFF;
constexpr char Picture[] = "\xFF\xD8\xFF\xE0picture\xFF\xD9";

constexpr char CookieName[] = "NOBSESS";

std::optional<std::string> SessionOf(const Request& request) {
  for (std::string cookie : Split(request.Header("Cookie"), ';')) {
    cookie.erase(0, cookie.find_first_not_of(' '));
    const auto equals = cookie.find('=');
    if (equals != cookie.npos && cookie.substr(0, equals) == CookieName) return cookie.substr(equals + 1);
  }
  return std::nullopt;
}

std::string Word(long value) {
  return {static_cast<char>(value >> 8 & 0xFF), static_cast<char>(value & 0xFF)};
}

int Whole(const std::string& text, int min, int max) {
  return static_cast<int>(WholeOf(text, {0.0 + min, 0.0 + max}));
}

}  // namespace

/// What opecmd.cgi knows, all of it in whole numbers; false where it refuses what was in order.
struct SanyoCommands {
  /// In percent, to the left or down below 0.
  static int Step(const std::string& direction, const std::string& percent) {
    const int step = std::min(Whole(percent, 0, INT_MAX), LargestStep);
    return Whole(direction, 1, 2) == Backward ? -step : step;
  }
  static bool Pan(Sanyo& s, const Values& v) { return s.Pan_.MoveBy(Step(v[0], v[1]) * AcrossPercent), true; }
  static bool Tilt(Sanyo& s, const Values& v) { return s.Tilt_.MoveBy(Step(v[0], v[1]) * UpPercent), true; }
  static bool Both(Sanyo& s, const Values& v) {
    Step(v[2], v[3]);  // nothing moves before all is in order
    return Pan(s, v) && Tilt(s, {v[2], v[3]});
  }

  static bool StepIn(Sanyo& s, const Values&) { return s.Zoom_.MoveBy(ZoomStep), true; }
  static bool StepOut(Sanyo& s, const Values&) { return s.Zoom_.MoveBy(-ZoomStep), true; }

  static bool Register(Sanyo& s, const Values& v) {
    s.Presets_[Whole(v[0], 1, Presets)] = {s.Pan_.Position(), s.Tilt_.Position(), s.Zoom_.Position()};
    return true;
  }
  static bool Execute(Sanyo& s, const Values& v) {
    const auto preset = s.Presets_.find(Whole(v[0], 1, Presets));
    if (preset == s.Presets_.end()) return false;
    const auto& [pan, tilt, zoom] = preset->second;
    s.Pan_.MoveTo(pan), s.Tilt_.MoveTo(tilt), s.Zoom_.MoveTo(zoom);
    return true;
  }

  static bool Run(Sanyo& s, const Values& v) {
    const int code = Whole(v[0], 1, 12), across = Whole(v[1], 0, FastestSpeed),
              up = Whole(v[2], 0, FastestSpeed);
    const auto way = std::find_if(std::begin(Directions), std::end(Directions),
                                  [&](const Direction& d) { return d.Code == code; });
    if (way == std::end(Directions)) throw std::invalid_argument("cmd is no direction");
    if ((way->Pan == 0 && across != 0) || (way->Tilt == 0 && up != 0))
      throw std::invalid_argument("a speed of what stands still in this direction");
    s.Pan_.Run(way->Pan * (across + 1) * PanPerSpeed);
    s.Tilt_.Run(way->Tilt * (up + 1) * TiltPerSpeed);
    return true;
  }
  static bool Stop(Sanyo& s, const Values&) { return s.Pan_.Stop(), s.Tilt_.Stop(), true; }
  static bool RunZoom(Sanyo& s, const Values& v) {
    if (v.size() > 1) Whole(v[1], 0, FastestSpeed);  // all run alike here
    const int code = Whole(v[0], Tele, StopZoom);
    s.Zoom_.Run(code == Tele ? ZoomSpeed : code == Wide ? -ZoomSpeed : 0);
    return true;
  }

  static constexpr Page<Sanyo, bool> All[] = {
      {"/cgi-bin/opecmd.cgi?ope=8&registration=*", Register},
      {"/cgi-bin/opecmd.cgi?ope=11&execution=*", Execute},
      {"/cgi-bin/opecmd.cgi?ope=18", StepIn},
      {"/cgi-bin/opecmd.cgi?ope=19", StepOut},
      {"/cgi-bin/opecmd.cgi?ope=20&pan_dir=*&pan_percent=*", Pan},
      {"/cgi-bin/opecmd.cgi?ope=20&tilt_dir=*&tilt_percent=*", Tilt},
      {"/cgi-bin/opecmd.cgi?ope=20&pan_dir=*&pan_percent=*&tilt_dir=*&tilt_percent=*", Both},
      {"/cgi-bin/opecmd.cgi?ope=51&cmd=*&p_speed=*&t_speed=*", Run},
      {"/cgi-bin/opecmd.cgi?ope=51&cmd=12", Stop},
      {"/cgi-bin/opecmd.cgi?ope=51&cmd=*", RunZoom},
      {"/cgi-bin/opecmd.cgi?ope=51&cmd=*&z_speed=*", RunZoom},
  };
};

Sanyo::Sanyo(Options options)
    : Simulator(options.Clock),
      Lifetime_(options.Session),
      Status_(options.Told),
      Pan_(Time(), 2375, PanRange, PanSpeed),
      Tilt_(Time(), -1450, TiltRange, TiltSpeed),
      Zoom_(Time(), 375, ZoomRange, ZoomSpeed),
      Presets_{{1, {-5225, -1700, 610}}, {7, {8800, -950, 130}}},
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

HTTPReply Sanyo::Answer(const Request& request) {
  const Query query(request.Target);
  const auto session = SessionOf(request);
  if (request.Target == "/index.html") return Index(session);
  const bool asks = query.Path == "/liveimg.cgi";
  if (!asks && query.Path != "/cgi-bin/opecmd.cgi")
    return {.Status = 404, .Violation = "no such page: " + request.Target};

  if (!session || !Alive(*session)) {
    HTTPReply refusal = HTTPReply::Text("<html><body>No session</body></html>\r\n", "text/html");
    refusal.Status = 403;
    if (!session || !asks)
      refusal.Violation = (session ? "the session is over: " : "no session: ") + request.Target;
    return refusal;
  }
  if (!asks) return Obey(query);
  if (query.Text != "pol=1") return {.Status = 400, .Violation = "not asked for pol=1: " + request.Target};
  return HTTPReply::Text(Position(), "application/octet-stream");
}

HTTPReply Sanyo::Index(const std::optional<std::string>& session) {
  HTTPReply page = HTTPReply::Text("<html><body>Live view</body></html>\r\n", "text/html");
  if (session && Alive(*session)) {
    Sessions_[*session] = Time().Now();
    return page;
  }
  std::erase_if(Sessions_, [this](const auto& one) { return !Alive(one.first); });
  const std::string begun = std::to_string(41873 + 7919 * ++LastSession_);
  Sessions_[begun] = Time().Now();
  page.Headers.emplace_back("Set-Cookie", CookieName + ("=" + begun) + "; path=/");
  return page;
}

bool Sanyo::Alive(const std::string& session) {
  const auto found = Sessions_.find(session);
  return found != Sessions_.end() && Time().Now() - found->second < Lifetime_;
}

std::string Sanyo::Position() const {
  std::string bytes(Head16, HeadLength);
  const auto append = [&](bool given, const Motion& motion) {
    bytes += Word(given ? std::lround(motion.Position()) : NotGiven);
  };
  if (!Status_.PanTilt) bytes[FlagsAt] |= NoPanTilt;
  if (!Status_.Zoom) bytes[FlagsAt] |= NoZoom;
  append(Status_.PanTilt, Pan_), append(Status_.PanTilt, Tilt_), append(Status_.Zoom, Zoom_);
  return (bytes + Picture).substr(0, Status_.Length);
}

HTTPReply Sanyo::Obey(const Query& query) {
  const auto command = FindPage(SanyoCommands::All, query);
  if (!command.It) throw std::invalid_argument("no such command");
  return command.It->Do(*this, command.Given) ? HTTPReply::Text("", "text/html") : HTTPReply{.Status = 400};
}

void Sanyo::Tell(Status status) {
  const std::lock_guard lock(Mutex_);
  Status_ = status;
}

Sanyo::HeadState Sanyo::Head() const {
  const std::lock_guard lock(Mutex_);
  HeadState head{Pan_.Position() / PerUnit,
                 Tilt_.Position() / PerUnit,
                 Zoom_.Position() / PerUnit,
                 Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving(),
                 {}};
  for (const auto& [number, place] : Presets_) head.Presets.push_back(number);
  return head;
}

nlohmann::json Sanyo::State() const {
  const HeadState head = Head();
  return {{"pan", head.Pan},
          {"tilt", head.Tilt},
          {"zoom", head.Zoom},
          {"moving", head.Moving},
          {"presets", head.Presets}};
}

const Make Sanyo::AtShell = {"sanyo", "Sanyo camera (HTTP with a session)", [](Shell& shell) -> Builder {
                               const auto options = std::make_shared<Options>();
                               const auto seconds = std::make_shared<int>(300);
                               shell.Number("--session", *seconds, 1, 86400,
                                            "Seconds that a session lasts unless it is kept alive");
                               shell.Words(
                                   "--without", {"pan-tilt", "zoom"},
                                   [options](const std::string& what) {
                                     (what == "zoom" ? options->Told.Zoom : options->Told.PanTilt) = false;
                                   },
                                   "What its status does not tell: pan-tilt, zoom, or both");
                               return [options, seconds, build = From<Sanyo>(options)](std::uint16_t port) {
                                 options->Session = std::chrono::seconds(*seconds);
                                 return build(port);
                               };
                             }};

}  // namespace ptzsim
