// Panasonic i-Pro cameras: HTTP GET, accepted by status 204 or 200; replies are lines of "KEY=value", the
// values of positions ended by "&nbsp;" or "&nbsp". Positions are tenths of a degree and of the
// magnification. Most models count pan from its left end and tilt downwards, some have signed angles.

#include "drivers/PanasoniciPro.h"

#include <algorithm>

#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/PanasonicName.h"
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
    .AcceptsStatus = [](std::string_view code) { return code == "204" || code == "200"; },
};

constexpr std::string_view InformationPage = "/cgi-bin/getinfo?";
constexpr std::string_view PositionPage = "/cgi-bin/absget?";
constexpr std::string_view ControlPage = "/cgi-bin/absctrl?";
constexpr std::string_view ChannelParameter = "ch=";

constexpr double Units = 10;  // of a degree, and of the magnification

std::string UnitsText(float value) { return Text(ToSingle(value * Units)); }

constexpr const DriverOption* Options[] = {&AddressOption, &PortOption<std::int32_t>, &ResetOption};

constexpr Evidence Signs[] = {
    {.Request = "/cgi-bin/getinfo?FILE=1", .Pattern = "^MAC=*SERIAL=*VERSION="},
};
constexpr std::string_view MakeNames[] = {"Panasonic", "i-PRO"};

}  // namespace

struct PanasoniciPro::Model {
  struct Range {
    float Min, Max;  // degrees
    float Clamp(float value) const { return std::clamp(value, Min, Max); }
  };

  std::string_view Name;
  Range Pan, Tilt;
  bool SignedAngles = false;  // pan from the middle and tilt upwards; else from the left end, and downwards

  bool IsEndless() const { return Pan.Min == -180 && Pan.Max == 180; }
  float PanOrigin() const { return SignedAngles ? 0 : Pan.Min; }
  /// The camera's tilt of a tilt, and the other way round; never -0.
  double Upright(double tilt) const { return SignedAngles ? tilt : 0 - tilt; }

  /// On an endless head one turn is enough; beyond that the camera is left to judge.
  float LimitPan(float pan) const {
    if (!IsEndless()) return Pan.Clamp(pan);
    return pan < -180 ? ToSingle(pan + 360.0) : pan > 180 ? ToSingle(pan - 360.0) : pan;
  }

  static const Model* Find(std::string_view name);
};

const PanasoniciPro::Model* PanasoniciPro::Model::Find(std::string_view name) {
  static constexpr Model table[] = {
      {"WV-NS202", {-175, 175}, {-90, 30}},
      {"WV-NS202A", {-175, 175}, {-90, 30}},
      {"WV-NS950", {-180, 180}, {-90, 5}},
      {"WV-NS954", {-180, 180}, {-90, 5}},
      {"WV-NW960", {-180, 180}, {-90, 5}},
      {"WV-NW964", {-180, 180}, {-90, 5}},
      {"WV-SC384", {-175, 175}, {-90, 30}},
      {"WV-SC385", {-175, 175}, {-90, 30}},
      {"WV-SW395", {-175, 175}, {-90, 30}},
      {"WV-SW396", {-180, 180}, {-90, 0}},
      {"WV-SW598", {-180, 180}, {-90, 0}},
      {"WV-SC588", {-180, 180}, {-90, 0}},
      {"WV-SW174W", {-47.5F, 47.5F}, {-45, 10}, true},
      {"WV-SW175", {-47.5F, 47.5F}, {-45, 10}, true},
      {"BL-VT164", {-41, 41}, {-32, 10}, true},
      {"BL-VT164W", {-41, 41}, {-32, 10}, true},
  };
  const auto* found = std::ranges::find(table, name, &Model::Name);
  return found == std::end(table) ? nullptr : found;
}

const DriverData PanasoniciPro::Data = {
    .Class = "QVPTZ.PanasoniciPro",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityMultiport,
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::Fails,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .SetPanTilt = PlaceRule::AsksAnew,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom,
    .PositionStep = 0.1,
    .PanRange = ValueRange{-180, 180, "degrees", Beyond::Limited, true},  // an endless head goes around
    .TiltRange = ValueRange{-90, 30, "degrees", Beyond::Limited, true},
    .ZoomRange = ValueRange{.Least = 0, .Unit = "magnifications beyond the first"},
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No camera address specified."},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

PanasoniciPro::PanasoniciPro(const Platform& platform) : WithZoom(Data, platform, Style) {}

bool PanasoniciPro::Open() {
  const auto information = SendCommand(InformationPage, "FILE=1");
  if (!information || information->empty())
    Raise(PTZErrorConnectionFailed, "Unable to get the camera information.");
  std::string name;
  for (const auto& [key, value] : Split2D(*information, "\r\n", "="))
    if (LowerCase(key) == "name") name = value;
  Model_ = Model::Find(UpperCaseName(name));
  if (Model_ == nullptr)
    Raise(PTZErrorUnrecognisedDevice,
          "The Panasonic iPro " + MaskCredentials(name) + " is not currently recognised by Quorvane.");

  ReadPosition();
  if (ResetOption.In(Options_)) GoTo({0, 0, Current_.Zoom});
  return true;
}

bool PanasoniciPro::GoTo(HeadPosition target) {
  if (Model_ == nullptr) return false;
  target = {Model_->LimitPan(ToSingle(target.Pan)), Model_->Tilt.Clamp(ToSingle(target.Tilt)),
            std::max(ToSingle(target.Zoom), 0.0F)};

  std::string parameters;
  if (target.Pan != Current_.Pan || target.Tilt != Current_.Tilt)
    parameters = "pan=" + UnitsText(ToSingle(target.Pan - Model_->PanOrigin())) +
                 "&tilt=" + UnitsText(ToSingle(Model_->Upright(target.Tilt)));
  if (target.Zoom != Current_.Zoom)
    AppendParameter(parameters, "zoom=" + UnitsText(ToSingle(target.Zoom + 1.0)));
  if (!parameters.empty() && !SendCommand(ControlPage, parameters)) return false;

  Current_ = target;
  PositionAge_.Set(TickCount());
  return true;
}

void PanasoniciPro::QueryPosition() {
  if (Model_ == nullptr) return;  // its numbers would mean nothing
  const auto reply = SendCommand(PositionPage, "");
  if (!reply) return;
  auto position = Current_;
  for (const auto& [field, value] : Split2D(*reply, "\r\n", "=")) {
    const auto key = LowerCase(field);
    // `Val` ends before the blank that stands, in one form or the other, behind the number.
    if (key == "pan") position.Pan = ToSingle(Val(value) / Units + Model_->PanOrigin());
    if (key == "tilt") position.Tilt = ToSingle(Model_->Upright(Val(value) / Units));
    if (key == "zoom") position.Zoom = NearestQuarter(Val(value) / Units - 1);
  }
  Current_ = position;
}

std::optional<std::string> PanasoniciPro::SendCommand(std::string_view page, std::string_view parameters) {
  return Request(CommandPath(page, ChannelParameter, parameters));
}

}  // namespace ptzd
