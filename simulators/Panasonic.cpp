#include "simulators/Panasonic.h"

#include <algorithm>
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

enum Ability : unsigned { Zooms = 1, Focuses = 2, Brightens = 4, TakesAngles = 8 };

}  // namespace

struct Panasonic::Model {
  std::string_view Name;
  unsigned Abilities;       // TakesAngles with a firmware that is new enough
  Motion::Range Pan, Tilt;  // degrees
  double Field;  // of view, across the picture, degrees; 0: the camera knows of no picture to click in

  static const Model All[];
};

constinit const Panasonic::Model Panasonic::Model::All[] = {
    {"BB-HCM581A", Zooms | Focuses | Brightens | TakesAngles, {-175, 175}, {-120, 90}, 44},
    {"BB-HCM381", Zooms | Focuses | Brightens | TakesAngles, {-175, 175}, {-120, 90}, 44},
    {"BB-HCE481", Zooms | Focuses | Brightens | TakesAngles, {-175, 175}, {-120, 90}, 44},
    {"BB-HCM580", Zooms | Focuses | Brightens | TakesAngles, {-175, 175}, {-120, 90}, 44},
    {"BB-HCM581", Zooms | Focuses | Brightens | TakesAngles, {-175, 175}, {-120, 90}, 44},
    {"BL-C10", Brightens, {-50, 50}, {-40, 10}, 44.5},
    {"BL-C30", Brightens, {-50, 50}, {-40, 10}, 44.5},
    {"BL-C111", Brightens | TakesAngles, {-50, 50}, {-40, 10}, 44.5},
    {"BL-C131", Brightens | TakesAngles, {-50, 50}, {-40, 10}, 44.5},
    {"BL-C131E", Brightens | TakesAngles, {-50, 50}, {-40, 10}, 44.5},
    {"BB-HCM311", Brightens | TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM331", Brightens | TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM371", Brightens | TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM511", TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM515", TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM531", TakesAngles, {-60, 60}, {-45, 20}, 44.5},
    {"BB-HCM527", Zooms | TakesAngles, {-175, 175}, {0, 82}, 0},
    {"BB-HCM547", Zooms | TakesAngles, {-175, 175}, {0, 82}, 0},
    {"BB-HCM715", Zooms | TakesAngles, {-52, 52}, {-45, 8}, 0},
    {"BB-HCM735", Zooms | TakesAngles, {-52, 52}, {-45, 8}, 0},
    {"BL-C210", TakesAngles, {-41, 41}, {-32, 10}, 0},
    {"BL-C230", TakesAngles, {-41, 41}, {-32, 10}, 0},
    {"BL-VT164", TakesAngles, {-41, 41}, {-32, 10}, 0},
};

namespace {

constexpr double Degree = 100;                              // units of pan and tilt
constexpr double LastWithoutAngles = 1.22;                  // firmware
constexpr double CeilingTop = 90, DeskBottom = -120;        // degrees
constexpr Motion::Range LensRange{0, 1000};                 // zoom and focus
constexpr double LensStep = 50;                             // of zoom and focus
constexpr double TurnSpeed = 90 * Degree, LensSpeed = 400;  // units per second
constexpr int Darkest = 1, UsualBrightness = 5, Brightest = 9;
constexpr double Aspect = 0.75;          // of a picture, height by width
constexpr double PixelsPerDegree = 100;  // of points that come without a picture

Motion::Range Units(Motion::Range degrees) { return {degrees.Min * Degree, degrees.Max * Degree}; }

Motion::Range TiltRange(Motion::Range range, Panasonic::Mount mount) {
  if (mount == Panasonic::Mount::Ceiling) range.Max = CeilingTop;
  if (mount == Panasonic::Mount::Desk) range.Min = DeskBottom;
  return Units(range);
}

double Whole(const std::string& text, Motion::Range range = Motion::Any) {
  return static_cast<double>(WholeOf(text, range));
}

/// Of a picture: digits, with decimals perhaps.
double Size(const std::string& text) {
  if (text.find_first_not_of("0123456789.") != text.npos)
    throw std::invalid_argument("\"" + text + "\" is not a size");
  return NumberOf(text);
}

std::string Row(const std::string& key, double value) { return key + ":" + Decimal(value, 0) + "\r\n"; }

}  // namespace

/// What the camera knows. Each gives the rows of its reply and throws std::invalid_argument on values that no
/// such camera takes.
struct PanasonicPages {
  struct Page {
    const char* Target;
    unsigned Needs;
    std::string (*Do)(Panasonic&, const Values&);
  };

  static std::string TellModel(Panasonic& p, const Values&) {
    return "MacAddress:00:80:F0:4B:1C:2D\r\nModelName:" + std::string(p.Model_.Name) +
           "\r\nBootFirm:1.07\r\nAplFirm:" + p.Firmware_ + "\r\nCgiVersion:3.51\r\n";
  }

  static std::string TellAngle(const Motion& motion) {
    return Row("Min", motion.Limits().Min) + Row("Max", motion.Limits().Max) + Row("Deg", motion.Position());
  }
  static std::string TellPan(Panasonic& p, const Values&) { return TellAngle(p.Pan_); }
  static std::string TellTilt(Panasonic& p, const Values&) {
    if (p.Mount_ == Panasonic::Mount::NotTold) return TellAngle(p.Tilt_);
    return Row("SetupType", p.Mount_ == Panasonic::Mount::Ceiling ? 0 : 1) + TellAngle(p.Tilt_);
  }

  static std::string Turn(Panasonic& p, const Values& values) {
    const double pan = Whole(values[0], p.Pan_.Limits()), tilt = Whole(values[1], p.Tilt_.Limits());
    p.Pan_.MoveTo(pan), p.Tilt_.MoveTo(tilt);
    return {};
  }

  /// Brings the clicked point to the middle, which is a whole pixel. Pixels count from the upper left corner;
  /// in a picture without a size, which is what is sent to models that know of none, from the middle.
  static std::string Click(Panasonic& p, const Values& values) {
    const double width = Size(values[0]), height = Size(values[1]);
    const double x = Whole(values[2]), y = Whole(values[3]);
    if (height != width * Aspect) throw std::invalid_argument("the picture is not 4:3");
    if ((width == 0) != (p.Model_.Field == 0)) throw std::invalid_argument("no such picture on this model");
    const double degrees = width == 0 ? 1 / PixelsPerDegree : p.Model_.Field / width;  // per pixel
    p.Pan_.MoveBy((std::floor(width / 2) - x) * degrees * Degree);
    p.Tilt_.MoveBy((std::floor(height / 2) - y) * degrees * Degree);
    return {};
  }

  template <int Direction>
  static std::string Zoom(Panasonic& p, const Values&) {
    p.Zoom_.MoveBy(Direction * LensStep);
    return {};
  }

  /// 0 leaves it to the camera.
  template <int Direction>
  static std::string Focus(Panasonic& p, const Values&) {
    p.AutoFocus_ = Direction == 0;
    p.Focus_.MoveBy(Direction * LensStep);
    return {};
  }

  /// 0 is back to the usual one.
  template <int Direction>
  static std::string Brighten(Panasonic& p, const Values&) {
    p.Brightness_ =
        Direction == 0 ? UsualBrightness : std::clamp(p.Brightness_ + Direction, Darkest, Brightest);
    return {};
  }

  static constexpr Page All[] = {
      {"/Get?Func=Model&Kind=1", 0, TellModel},
      {"/Get?Func=Pan&Kind=1", 0, TellPan},
      {"/Get?Func=Tilt&Kind=1", 0, TellTilt},
      {"/nphPtzf?Func=Set&PanAng=*&PanAngRate=-1&TiltAng=*&TiltAngRate=-1&Sync=1", TakesAngles, Turn},
      {"/nphControlCamera?Width=*&Height=*&Direction=Direct&NewPosition.x=*&NewPosition.y=*", 0, Click},
      {"/nphControlCamera?Direction=Brighter", Brightens, Brighten<1>},
      {"/nphControlCamera?Direction=Darker", Brightens, Brighten<-1>},
      {"/nphControlCamera?Direction=DefaultBrightness", Brightens, Brighten<0>},
      {"/Set?Func=Zoom&Kind=0&ZoomMode=4", Zooms, Zoom<1>},
      {"/Set?Func=Zoom&Kind=0&ZoomMode=6", Zooms, Zoom<-1>},
      {"/Set?Func=Focus&Kind=0&FocusMode=4", Focuses, Focus<-1>},
      {"/Set?Func=Focus&Kind=0&FocusMode=5", Focuses, Focus<0>},
      {"/Set?Func=Focus&Kind=0&FocusMode=6", Focuses, Focus<1>},
  };
};

std::vector<std::string> Panasonic::Models() { return NamesOf(Model::All); }

Panasonic::Panasonic(const Options& options)
    : Simulator(options.Clock),
      Model_(FindModel(Model::All, options.Model)),
      Firmware_(options.Firmware),
      Mount_(options.Mounted),
      Abilities_(NumberOf(Firmware_) > LastWithoutAngles ? Model_.Abilities
                                                         : Model_.Abilities & ~TakesAngles),
      Pan_(Time(), -3325, Units(Model_.Pan), TurnSpeed),
      Tilt_(Time(), 675, TiltRange(Model_.Tilt, Mount_), TurnSpeed),
      Zoom_(Time(), 421, LensRange, LensSpeed),
      Focus_(Time(), 638, LensRange, LensSpeed),
      Server_(*this, Mutex_, options.Port, [this](const Request& r) { return Answer(r); }) {}

HTTPReply Panasonic::Answer(const Request& request) {
  const Query query(request.Target);
  for (const auto& page : PanasonicPages::All) {
    const auto values = Match(page.Target, query);
    if (!values) continue;
    const unsigned lacking = page.Needs & ~Abilities_;
    if (lacking == TakesAngles) break;
    if (lacking) return HTTPReply::Text("Return:-1\r\n");
    return HTTPReply::Text("Return:0\r\n" + page.Do(*this, *values));
  }
  return {.Status = 404, .Violation = "no such request: " + request.Target};
}

Panasonic::HeadState Panasonic::Head() const {
  const std::lock_guard lock(Mutex_);
  return {(0 - Pan_.Position()) / Degree,
          Tilt_.Position() / Degree,
          Zoom_.Position(),
          Focus_.Position(),
          AutoFocus_,
          Brightness_,
          Pan_.Moving() || Tilt_.Moving() || Zoom_.Moving() || Focus_.Moving(),
          {-Pan_.Limits().Max / Degree, -Pan_.Limits().Min / Degree},
          {Tilt_.Limits().Min / Degree, Tilt_.Limits().Max / Degree}};
}

nlohmann::json Panasonic::State() const {
  const HeadState head = Head();
  return {{"model", Model_.Name},
          {"firmware", Firmware_},
          {"pan", head.Pan},
          {"tilt", head.Tilt},
          {"zoom", head.Zoom},
          {"focus", head.Focus},
          {"autofocus", head.AutoFocus},
          {"brightness", head.Brightness},
          {"moving", head.Moving}};
}

const Make Panasonic::AtShell = {
    "panasonic", "Panasonic BL-C, BB-HCM or BB-HCE camera (HTTP)", [](Shell& shell) {
      const auto options = WithModel<Panasonic>(shell);
      shell.Text("--firmware", options->Firmware, "Version of the firmware, up to 1.22 without angles");
      shell.Choice("--mount", options->Mounted,
                   {{"untold", Mount::NotTold}, {"desk", Mount::Desk}, {"ceiling", Mount::Ceiling}},
                   "Where it tells that it is mounted; untold when not given");
      return From<Panasonic>(options);
    }};

}  // namespace ptzsim
