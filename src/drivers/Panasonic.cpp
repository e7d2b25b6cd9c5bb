// Panasonic BL-C, BB-HCM and BB-HCE cameras: HTTP GET, accepted by status 200; replies are lines of
// "Key:value". Angles are hundredths of a degree, those of pan to the left. Older firmware takes no angles
// and is sent clicks into a picture of 100 pixels per degree instead.

#include "drivers/Panasonic.h"

#include <algorithm>

#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/PanasonicName.h"
#include "drivers/kit/CommandTable.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
#include "platform/LetterCase.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr RequestStyle Style{
    .Announcement = "Sending: ",
    .Completion = "Received: ",
    .Failure = "",
    .AcceptsStatus = [](std::string_view code) { return code == "200"; },
};

constexpr std::string_view ModelPath = "/Get?Func=Model&Kind=1";
constexpr std::string_view PanPath = "/Get?Func=Pan&Kind=1";
constexpr std::string_view TiltPath = "/Get?Func=Tilt&Kind=1";

constexpr float LastWithoutAngles = 1.22F;  // firmware
constexpr std::int32_t CeilingTop = 90;     // degrees of tilt that a camera of setup type 0 reaches
constexpr std::int32_t DeskBottom = -120;   // and one of any other type

constexpr std::int32_t UnitsPerDegree = 100;  // of angles, and pixels of the clicked picture's width
constexpr double HeightOfWidth = 0.75;

constexpr auto PanTilt = CapabilityPan | CapabilityTilt;
constexpr auto Brightness = PanTilt | CapabilityIris | CapabilityAutoIris;
constexpr auto WithZoom = PanTilt | CapabilityZoom;
constexpr auto WithLens = Brightness | CapabilityZoom | CapabilityFocus | CapabilityAutoFocus2;

/// A name without the letters at its end, which tell markets and colours apart.
std::string_view TrimLetters(std::string_view name) {
  while (!name.empty() && name.back() >= 'A' && name.back() <= 'Z') name.remove_suffix(1);
  return name;
}

/// What a camera tells of itself.
struct Identity {
  std::string Name;
  float Firmware = 0;

  explicit Identity(std::string_view information) {
    for (const auto& [field, value] : Split2D(information, "\r\n", ":")) {
      const auto key = LowerCase(field);
      if (key == "modelname") {
        const auto name = UpperCaseName(std::string(value));
        LogMessage("Camera model: " + name);
        Name = TrimLetters(name);
        LogMessage("Trimmed camera model: " + Name);
      } else if (key == "aplfirm") {
        Firmware = ToSingle(Val(value));
        LogMessage("Camera version: " + Text(Firmware));
      }
    }
  }
};

std::string AngleCommand(std::int32_t pan, std::int32_t tilt) {
  return "/nphPtzf?Func=Set&PanAng=" + Text(pan * -UnitsPerDegree) +
         "&PanAngRate=-1&TiltAng=" + Text(tilt * UnitsPerDegree) + "&TiltAngRate=-1&Sync=1";
}

/// One coordinate of a click that brings what lies so many degrees off the middle there. The size of the
/// picture is a single, the pixel a whole number; raises 6 beyond 32 bits.
std::string Pixel(float pictureSize, double degrees) {
  return Text(Int(ToSingle(pictureSize / 2.0)) + ToInt32(degrees * UnitsPerDegree));
}

/// Without a known view the picture has no size, and the click is the bare distance.
std::string ClickCommand(float viewWidth, double panAngle, double tiltAngle) {
  const float width = ToSingle(viewWidth * static_cast<double>(UnitsPerDegree));
  const float height = ToSingle(viewWidth * (UnitsPerDegree * HeightOfWidth));
  return "/nphControlCamera?Width=" + Text(width) + "&Height=" + Text(height) +
         "&Direction=Direct&NewPosition.x=" + Pixel(width, panAngle) +
         "&NewPosition.y=" + Pixel(height, -tiltAngle);
}

constexpr CommandRow<Zooms> ZoomCommands[] = {{ZoomIn, "/Set?Func=Zoom&Kind=0&ZoomMode=4"},
                                              {ZoomOut, "/Set?Func=Zoom&Kind=0&ZoomMode=6"}};
// Closing restores the default and automatic darkens: crossed, and meant so.
constexpr CommandRow<Iris> IrisCommands[] = {{IrisOpen, "/nphControlCamera?Direction=Brighter"},
                                             {IrisClose, "/nphControlCamera?Direction=DefaultBrightness"},
                                             {IrisAuto, "/nphControlCamera?Direction=Darker"}};
constexpr CommandRow<Focus> FocusCommands[] = {{FocusNear, "/Set?Func=Focus&Kind=0&FocusMode=4"},
                                               {FocusFar, "/Set?Func=Focus&Kind=0&FocusMode=6"},
                                               {FocusAuto, "/Set?Func=Focus&Kind=0&FocusMode=5"}};

constexpr const DriverOption* Options[] = {&AddressOption, &ResetOption};

constexpr Evidence Signs[] = {
    {.Request = ModelPath, .Pattern = "AplFirm:"},  // not every model tells its CGI's version
};
constexpr std::string_view MakeNames[] = {"Panasonic"};

}  // namespace

struct Panasonic::Model {
  std::string_view Name;
  ptzd::Capabilities Flags;
  Range Pan, Tilt;
  float ViewWidth = 0;      // degrees, horizontally; 0: not known
  bool ClicksOnly = false;  // takes no angles whatever its firmware

  static const Model* Find(std::string_view name);
};

const Panasonic::Model* Panasonic::Model::Find(std::string_view name) {
  static constexpr Model table[] = {
      {"BL-C10", Brightness, {-50, 50}, {-40, 10}, 44.5F, true},
      {"BL-C30", Brightness, {-50, 50}, {-40, 10}, 44.5F, true},
      {"BL-C111", Brightness, {-50, 50}, {-40, 10}, 44.5F},
      {"BL-C131", Brightness, {-50, 50}, {-40, 10}, 44.5F},
      {"BB-HCM311", Brightness, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM331", Brightness, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM371", Brightness, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM511", PanTilt, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM531", PanTilt, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM515", PanTilt, {-60, 60}, {-45, 20}, 44.5F},
      {"BB-HCM381", WithLens, {-175, 175}, {-120, 90}, 44},
      {"BB-HCE481", WithLens, {-175, 175}, {-120, 90}, 44},
      {"BB-HCM580", WithLens, {-175, 175}, {-120, 90}, 44},
      {"BB-HCM581", WithLens, {-175, 175}, {-120, 90}, 44},
      {"BB-HCM527", WithZoom, {-175, 175}, {0, 82}},
      {"BB-HCM547", WithZoom, {-175, 175}, {0, 82}},
      {"BB-HCM715", WithZoom, {-52, 52}, {-45, 8}},
      {"BB-HCM735", WithZoom, {-52, 52}, {-45, 8}},
      {"BL-C210", PanTilt, {-41, 41}, {-32, 10}},
      {"BL-C230", PanTilt, {-41, 41}, {-32, 10}},
      {"BL-VT164", PanTilt, {-41, 41}, {-32, 10}},
  };
  const auto* found = std::ranges::find(table, name, &Model::Name);
  return found == std::end(table) ? nullptr : found;
}

const DriverData Panasonic::Data = {
    .Class = "QVPTZ.Panasonic",
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .Iris = MemberRule::OutcomeIfConnected,
    .Focus = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .PositionRequests = AsksOnConnecting,
    .PanRange = ValueRange{-175, 175, "degrees", Beyond::Limited, true},
    .TiltRange = ValueRange{DeskBottom, CeilingTop, "degrees", Beyond::Limited, true},
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No camera address specified."},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Panasonic::Panasonic(const Platform& platform) : HTTPDriver(Data, platform, Style) {}

bool Panasonic::Open() {
  const auto information = Request(ModelPath);
  if (!information) Raise(PTZErrorConnectionFailed, "Unable to get the camera information.");
  SetUp(*information);

  if (ResetOption.In(Options_)) GoTo({});
  return true;
}

void Panasonic::SetUp(std::string_view information) {
  const Identity camera(information);
  const auto* model = Model::Find(camera.Name);
  if (model == nullptr)
    Raise(PTZErrorUnrecognisedDevice,
          "The Panasonic " + MaskCredentials(camera.Name) + " is not currently recognised by Quorvane.");

  const bool takesAngles = !model->ClicksOnly && camera.Firmware > LastWithoutAngles;
  if (takesAngles) LogMessage("Using new API version");

  auto position = Current_;
  auto tiltLimits = model->Tilt;
  if (const auto reply = Request(PanPath)) {
    for (const auto& [key, value] : Split2D(*reply, "\r\n", ":"))
      if (LowerCase(key) == "deg") position.Pan = ToInt32(-Val(value) / UnitsPerDegree);
  }
  if (const auto reply = Request(TiltPath)) {
    for (const auto& [field, value] : Split2D(*reply, "\r\n", ":")) {
      const auto key = LowerCase(field);
      if (key == "deg") position.Tilt = ToInt32(Val(value) / UnitsPerDegree);
      if (key == "setuptype") {
        if (Val(value) == 0)
          tiltLimits.Max = CeilingTop;
        else
          tiltLimits.Min = DeskBottom;
      }
    }
  }

  Found_ = takesAngles ? model->Flags : model->Flags | CapabilityRelativeControl;
  PanLimits_ = model->Pan;
  TiltLimits_ = tiltLimits;
  ViewWidth_ = model->ViewWidth;
  TakesAngles_ = takesAngles;
  Current_ = position;
}

bool Panasonic::GoTo(HeadPosition target) {
  target = Reachable(target.Pan, target.Tilt);
  if (!Request(TakesAngles_
                   ? AngleCommand(ToInt32(target.Pan), ToInt32(target.Tilt))
                   : ClickCommand(ViewWidth_, target.Pan - Current_.Pan, target.Tilt - Current_.Tilt)))
    return false;
  Current_ = target;
  return true;
}

/// The nearest whole degrees within the limits of the model.
HeadPosition Panasonic::Reachable(double pan, double tilt) const {
  const auto wholePan = ToInt32(pan), wholeTilt = ToInt32(tilt);
  return {0.0 + std::clamp(wholePan, PanLimits_.Min, PanLimits_.Max),
          0.0 + std::clamp(wholeTilt, TiltLimits_.Min, TiltLimits_.Max)};
}

bool Panasonic::ZoomBy(Zooms direction, float) { return SendCommand(CommandFor(direction, ZoomCommands)); }

bool Panasonic::SetIris(ptzd::Iris level) { return SendCommand(CommandFor(level, IrisCommands)); }

bool Panasonic::SetFocus(ptzd::Focus level) { return SendCommand(CommandFor(level, FocusCommands)); }

void Panasonic::TakePlace(float pan, float tilt) { Current_ = Reachable(pan, tilt); }

/// Nothing is sent for a value that has no command.
bool Panasonic::SendCommand(std::string_view command) { return !command.empty() && Request(command); }

}  // namespace ptzd
