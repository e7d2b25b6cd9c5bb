#include "simulators/Sony.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <vector>

#include "simulators/engine/Make.h"
#include "simulators/engine/Message.h"
#include "simulators/engine/Models.h"
#include "simulators/engine/Rules.h"

namespace ptzsim {
namespace {

enum Ability : unsigned { Visca = 1, Zooms = 2, Endless = 4, TellsRange = 8 };

}  // namespace

struct Sony::Model {
  std::string_view Name;
  const char* CGIVersion;
  unsigned Abilities;
  int Right;                // the way of the units when the head turns right or up
  Motion::Range Pan, Tilt;  // units
  int FastestTurn;

  bool Has(unsigned ability) const { return Abilities & ability; }
  double Turn() const { return Pan.Max - Pan.Min; }  // of an endless head
  bool Version6() const { return CGIVersion[0] >= '6'; }
  static const Model All[];
};

constinit const Sony::Model Sony::Model::All[] = {
    {"SNC-RZ50P", "3.05", Visca | Zooms, 1, {-2448, 2448}, {-828, 828}, 24},
    {"SNC-RZ30N", "2.10", Visca | Zooms, -1, {-2448, 2448}, {-828, 828}, 18},
    {"SNC-RX550N", "3.10", Visca | Zooms | Endless | TellsRange, 1, {-3744, 3744}, {-1024, 256}, 23},
    {"SNC-RS46N", "3.10", Visca | Zooms | Endless | TellsRange, 1, {-3744, 3744}, {-1008, 168}, 24},
    {"SNC-P5", "2.00", 0, 1, {-564, 564}, {-226, 339}, 20},
    {"SNC-EP521", "6.00", Zooms | TellsRange, 1, {-2380, 2380}, {-1008, 168}, 22},
};

namespace {

constexpr Motion::Range ZoomRange{0, 0x4000};
constexpr double TurnSpeed = 1500, ZoomSpeed = 6000;  // units per second
constexpr double FullSpeed = 100;                     // of a continuous motion, in percent

// VISCA frames, whose last byte is the only one that is FF. Commands to camera 1 begin with these.
constexpr unsigned char PanTiltAbsolute[] = {0x81, 0x01, 0x06, 0x02};  // two speeds, pan, tilt
constexpr unsigned char ZoomDirect[] = {0x81, 0x01, 0x04, 0x47};       // zoom
constexpr std::size_t PanTiltLength = 15, ZoomLength = 9;
constexpr unsigned char PanTiltInquiry[] = {0x81, 0x09, 0x06, 0x12, 0xFF};
constexpr char PanTiltReply[] = "9050";
constexpr unsigned char FrameEnd = 0xFF;

std::string Hex4(long value) {
  char text[8];
  std::snprintf(text, sizeof text, "%04lX", static_cast<unsigned long>(value) & 0xFFFF);
  return text;
}

/// Four hexadecimal digits.
long Word(std::string_view text) {
  const auto bytes = BytesOf(text);
  if (bytes.size() != 2) throw std::invalid_argument("\"" + std::string(text) + "\" is not four digits");
  return bytes[0] << 8 | bytes[1];
}

/// A 16-bit number as two's complement.
long Signed(long word) { return word < 0x8000 ? word : word - 0x10000; }

/// A 16-bit number in four bytes of four bits each.
long Nibbles(const unsigned char* bytes) {
  long value = 0;
  for (int i = 0; i < 4; ++i) {
    if (bytes[i] > 0x0F) throw std::invalid_argument("a number with more than four bits in a byte");
    value = value * 16 + bytes[i];
  }
  return value;
}

std::string NibbleText(long value) {
  std::string text;
  for (const char digit : Hex4(value)) (text += '0') += digit;
  return text;
}

std::string Pair(Motion::Range range) {
  return Hex4(std::lround(range.Min)) + "," + Hex4(std::lround(range.Max));
}

bool Begins(const std::vector<unsigned char>& frame, const unsigned char (&head)[4]) {
  return std::equal(std::begin(head), std::end(head), frame.begin());
}

}  // namespace

std::vector<std::string> Sony::Models() { return NamesOf(Model::All); }

Sony::Sony(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Pan_(Time(), 217, Model_.Has(Endless) ? Motion::Endless : Model_.Pan, TurnSpeed),
      Tilt_(Time(), -134, Model_.Tilt, TurnSpeed),
      Zoom_(Time(), 3456, ZoomRange, ZoomSpeed),
      Server_([this](const Request& r) { return Answer(r); }, {.Port = options.Port}, Log(), Faults()) {}

HTTPReply Sony::Answer(const Request& request) {
  const std::lock_guard lock(Mutex_);
  const Query query(request.Target);
  const bool post = request.Method == "POST";
  if (!post && request.Method != "GET") return {.Status = 501, .Violation = "method " + request.Method};
  const auto is = [&](std::string_view path, const char* name) {
    return !post && query.Path == path && query.Pairs.size() == 1 && query.Pairs[0].first == name;
  };
  try {
    if (is("/command/inquiry.cgi", "inq")) {
      if (const auto told = Inquiry(query.Pairs[0].second)) return HTTPReply::Text(*told + "\r\n");
    }
    if (is("/command/visca-inquiry.cgi", "visca")) {
      if (!Model_.Has(Visca)) return {.Status = 404};  // hosts ask in order to find out
      return HTTPReply::Text(AnswerVisca(query.Pairs[0].second));
    }
    if (is("/command/ptzf.cgi", "visca") && Model_.Has(Visca)) {
      ObeyVisca(query.Pairs[0].second);
      return HTTPReply::Nothing();
    }
    if (post && request.Target == "/command/ptzf.cgi") {
      ObeyCGI(request.Body);
      return HTTPReply::Nothing();
    }
  } catch (const std::invalid_argument& wrong) {
    return {.Status = 400, .Violation = wrong.what() + (": " + request.Target + " " + request.Body)};
  }
  return {.Status = 404, .Violation = "no such page: " + request.Method + " " + request.Target};
}

std::optional<std::string> Sony::Inquiry(std::string_view page) const {
  const auto flag = [](bool set) { return set ? "1" : "0"; };
  const std::string velocity = "&PanTiltMaxVelocity=" + std::to_string(Model_.FastestTurn);
  const std::string panRange = "&PanMovementRange=" + Pair(Model_.Pan);
  if (page == "system")
    return "Serial=418123&SoftVersion=2.31&ModelName=" + std::string(Model_.Name) +
           "&CGIVersion=" + Model_.CGIVersion;
  if (page == "sysinfo") {
    std::string told = std::string("PanTiltFunc=1&ZoomFunc=") + flag(Model_.Has(Zooms)) +
                       "&ContinuousPanTiltZoomFunc=1&Title=Yard";
    if (Model_.Version6()) return told;
    told += velocity;
    return Model_.Has(TellsRange) ? told + panRange + "&TiltMovementRange=" + Pair(Model_.Tilt) : told;
  }
  if (page != "ptzf" || !Model_.Version6()) return std::nullopt;
  const HeadState now = Now();
  return "AbsolutePTZF=" + Hex4(now.Pan) + "," + Hex4(now.Tilt) + "," + Hex4(now.Zoom) + ",1F40" + panRange +
         "&TiltMovementRange=0000,0001&TiltPanoramaRange=" + Pair(Model_.Tilt) + velocity;
}

std::string Sony::AnswerVisca(std::string_view digits) const {
  const auto frame = BytesOf(digits);
  if (!std::equal(frame.begin(), frame.end(), std::begin(PanTiltInquiry), std::end(PanTiltInquiry)))
    throw std::invalid_argument("unknown VISCA inquiry");
  const HeadState now = Now();
  return PanTiltReply + NibbleText(now.Pan) + NibbleText(now.Tilt) + "FF";
}

void Sony::ObeyVisca(std::string_view digits) {
  const auto frame = BytesOf(digits);
  if (frame.empty() || std::find(frame.begin(), frame.end(), FrameEnd) != frame.end() - 1)
    throw std::invalid_argument("FF stands at the end of a VISCA frame and nowhere else");
  if (frame.size() == PanTiltLength && Begins(frame, PanTiltAbsolute))
    return TurnTo(Signed(Nibbles(&frame[6])), Signed(Nibbles(&frame[10])), {0.0 + frame[4], 0.0 + frame[5]});
  if (frame.size() == ZoomLength && Begins(frame, ZoomDirect))
    return Zoom_.MoveTo(static_cast<double>(Nibbles(&frame[4])));
  throw std::invalid_argument("unknown VISCA command");
}

void Sony::ObeyCGI(std::string_view body) {
  const auto equals = std::min(body.find('='), body.size());
  const auto name = body.substr(0, equals);
  const auto values = Split(body.substr(std::min(equals + 1, body.size())), ',');
  if (name == "AbsolutePanTilt" && values.size() == 3) {
    const double speed = NumberOf(values[2]);
    return TurnTo(Signed(Word(values[0])), Signed(Word(values[1])), {speed, speed});
  }
  if (name == "AbsoluteZoom" && values.size() == 1 && Model_.Has(Zooms))
    return Zoom_.MoveTo(static_cast<double>(Word(values[0])));
  if (name == "RelativeZoom" && values.size() == 1)
    return Zoom_.MoveBy(static_cast<double>(Signed(Word(values[0]))));
  if (name == "ContinuousPanTiltZoom" && values.size() == 4 && values[3] == "Image1") {
    double percent[3];
    for (int i = 0; i < 3; ++i) percent[i] = std::clamp(NumberOf(values[i]), -FullSpeed, FullSpeed);
    Pan_.Run(percent[0] / FullSpeed * TurnSpeed * Model_.Right);
    Tilt_.Run(percent[1] / FullSpeed * TurnSpeed * Model_.Right);
    return Zoom_.Run(percent[2] / FullSpeed * ZoomSpeed);
  }
  throw std::invalid_argument("unknown command");
}

void Sony::TurnTo(long pan, long tilt, std::initializer_list<double> speeds) {
  const auto within = [](long value, Motion::Range range) {
    const auto number = static_cast<double>(value);
    return number >= range.Min && number <= range.Max;
  };
  if (!within(pan, Model_.Pan)) throw std::invalid_argument("pan is out of range");
  if (!within(tilt, Model_.Tilt)) throw std::invalid_argument("tilt is out of range");
  for (const double speed : speeds) {
    if (speed < 1 || speed > Model_.FastestTurn || speed != std::floor(speed))
      throw std::invalid_argument("the speed is not 1 to " + std::to_string(Model_.FastestTurn));
  }
  const auto across = static_cast<double>(pan);
  if (Model_.Has(Endless))
    Pan_.TurnTo(across, Model_.Turn());
  else
    Pan_.MoveTo(across);
  Tilt_.MoveTo(static_cast<double>(tilt));
}

Sony::HeadState Sony::Now() const {
  double pan = Pan_.Position();
  if (Model_.Has(Endless)) pan = Wrapped(pan, Model_.Pan.Min, Model_.Turn());
  return {std::lround(pan), std::lround(Tilt_.Position()), std::lround(Zoom_.Position()),
          Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving()};
}

Sony::HeadState Sony::Head() const {
  const std::lock_guard lock(Mutex_);
  return Now();
}

nlohmann::json Sony::State() const {
  const HeadState head = Head();
  return {{"model", Model_.Name},
          {"pan", head.Pan},
          {"tilt", head.Tilt},
          {"zoom", head.Zoom},
          {"moving", head.Moving}};
}

const Make Sony::AtShell = {"sony", "Sony SNC camera (HTTP)", ByModel<Sony>};

}  // namespace ptzsim
