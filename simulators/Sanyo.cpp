#include "simulators/Sanyo.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>

namespace ptzsim {
namespace {

// Pan, tilt and zoom are counted in hundredths, as the camera tells them.
constexpr double PerUnit = 100;
constexpr Motion::Range PanRange{-17500, 17500}, TiltRange{-9000, 3000}, ZoomRange{100, 2200};
constexpr double PanSpeed = 12000, TiltSpeed = 9000, ZoomSpeed = 300;  // of steps and presets, per second

// A hundred percent are half the picture: 55 by 30 degrees.
constexpr double AcrossPercent = 55 * PerUnit / 2 / 100, UpPercent = 30 * PerUnit / 2 / 100;
constexpr double ZoomStep = 25;
constexpr int LargestStep = 9999;  // percent; far beyond what any head can turn
constexpr int Backward = 2;        // in pan_dir and tilt_dir; 1 is right and up

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

}  // namespace

/// What opecmd.cgi knows: a number and the fields that come with it, all of them whole numbers.
struct SanyoCommands {
  struct Field {
    std::string Name;
    int Min, Max;
  };
  using Values = std::vector<int>;
  struct Command {
    std::string Ope;
    std::vector<Field> Fields;
    bool (*Do)(Sanyo&, const Values&);  // false: refused, though it was in order
  };

  static bool Turn(Motion& motion, double percent, int direction, int count) {
    motion.MoveBy(direction == Backward ? -count * percent : count * percent);
    return true;
  }
  static bool Pan(Sanyo& s, const Values& v) { return Turn(s.Pan_, AcrossPercent, v[0], v[1]); }
  static bool Tilt(Sanyo& s, const Values& v) { return Turn(s.Tilt_, UpPercent, v[0], v[1]); }
  static bool Both(Sanyo& s, const Values& v) {
    return Turn(s.Pan_, AcrossPercent, v[0], v[1]) && Turn(s.Tilt_, UpPercent, v[2], v[3]);
  }

  static bool StepIn(Sanyo& s, const Values&) { return s.Zoom_.MoveBy(ZoomStep), true; }
  static bool StepOut(Sanyo& s, const Values&) { return s.Zoom_.MoveBy(-ZoomStep), true; }

  static bool Register(Sanyo& s, const Values& v) {
    s.Presets_[v[0]] = {s.Pan_.Position(), s.Tilt_.Position(), s.Zoom_.Position()};
    return true;
  }
  static bool Execute(Sanyo& s, const Values& v) {
    const auto preset = s.Presets_.find(v[0]);
    if (preset == s.Presets_.end()) return false;
    const auto& [pan, tilt, zoom] = preset->second;
    s.Pan_.MoveTo(pan), s.Tilt_.MoveTo(tilt), s.Zoom_.MoveTo(zoom);
    return true;
  }

  static bool Run(Sanyo& s, const Values& v) {
    const auto way = std::find_if(std::begin(Directions), std::end(Directions),
                                  [&](const Direction& d) { return d.Code == v[0]; });
    if (way == std::end(Directions)) throw std::invalid_argument("cmd is no direction");
    if ((way->Pan == 0 && v[1] != 0) || (way->Tilt == 0 && v[2] != 0))
      throw std::invalid_argument("a speed of what stands still in this direction");
    s.Pan_.Run(way->Pan * (v[1] + 1) * PanPerSpeed);
    s.Tilt_.Run(way->Tilt * (v[2] + 1) * TiltPerSpeed);
    return true;
  }
  static bool RunZoom(Sanyo& s, const Values& v) {
    s.Zoom_.Run(v[0] == Tele ? ZoomSpeed : v[0] == Wide ? -ZoomSpeed : 0);
    return true;
  }

  static const std::vector<Command>& All() {
    static const Field panDir{"pan_dir", 1, 2}, pan{"pan_percent", 0, LargestStep};
    static const Field tiltDir{"tilt_dir", 1, 2}, tilt{"tilt_percent", 0, LargestStep};
    static const std::vector<Command> all = {
        {"8", {{"registration", 1, Presets}}, Register},
        {"11", {{"execution", 1, Presets}}, Execute},
        {"18", {}, StepIn},
        {"19", {}, StepOut},
        {"20", {panDir, pan}, Pan},
        {"20", {tiltDir, tilt}, Tilt},
        {"20", {panDir, pan, tiltDir, tilt}, Both},
        {"51", {{"cmd", 1, 12}, {"p_speed", 0, FastestSpeed}, {"t_speed", 0, FastestSpeed}}, Run},
        {"51", {{"cmd", Tele, StopZoom}}, RunZoom},
    };
    return all;
  }

  /// The fields' texts in the order of the command; nothing when others came, or too many.
  static std::optional<std::vector<std::string>> Texts(const Command& command, const Query& query) {
    std::vector<std::string> texts;
    for (const Field& field : command.Fields)
      if (const auto text = query.Find(field.Name)) texts.push_back(*text);
    if (query.Find("ope") != command.Ope || texts.size() != command.Fields.size() ||
        query.Pairs.size() != texts.size() + 1)
      return std::nullopt;
    return texts;
  }

  static int Whole(const Field& field, const std::string& text) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || text[0] == '-' || value < field.Min || value > field.Max)
      throw std::invalid_argument(field.Name + " is not " + std::to_string(field.Min) + " to " +
                                  std::to_string(field.Max));
    return value;
  }
};

Sanyo::Sanyo() : Sanyo(Options()) {}

Sanyo::Sanyo(Options options)
    : Simulator(options.Clock),
      Lifetime_(options.Session),
      Status_(options.Told),
      Pan_(Time(), 2375, PanRange, PanSpeed),
      Tilt_(Time(), -1450, TiltRange, TiltSpeed),
      Zoom_(Time(), 375, ZoomRange, ZoomSpeed),
      Presets_{{1, {-5225, -1700, 610}}, {7, {8800, -950, 130}}},
      Server_([this](const Request& r) { return Answer(r); }, {.Port = options.Port}, Log(), Faults()) {}

Sanyo::~Sanyo() = default;

HTTPReply Sanyo::Answer(const Request& request) {
  const std::lock_guard lock(Mutex_);
  const Query query(request.Target);
  if (request.Method != "GET") return {.Status = 501, .Violation = "method " + request.Method};
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
  for (const auto& command : SanyoCommands::All()) {
    const auto texts = SanyoCommands::Texts(command, query);
    if (!texts) continue;
    try {
      SanyoCommands::Values values;
      for (std::size_t i = 0; i < texts->size(); ++i)
        values.push_back(SanyoCommands::Whole(command.Fields[i], (*texts)[i]));
      return command.Do(*this, values) ? HTTPReply::Text("", "text/html") : HTTPReply{.Status = 400};
    } catch (const std::invalid_argument& wrong) {
      return {.Status = 400, .Violation = wrong.what() + (": " + query.Text)};
    }
  }
  return {.Status = 400, .Violation = "no such command: " + query.Text};
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

}  // namespace ptzsim
