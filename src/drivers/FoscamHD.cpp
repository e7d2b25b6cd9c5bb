// Foscam HD cameras: "cmd=ptzMoveRight" runs until "cmd=ptzStopRun", at the speed set last. Credentials stand
// in the query of every request. Replies are XML with a result code, which is not looked at.

#include "drivers/FoscamHD.h"

#include <algorithm>

#include "common/Numbers.h"
#include "drivers/kit/TimedMove.h"
#include "transport/HTTP.h"

namespace ptzd {

namespace {

constexpr std::string_view StopCommand = "ptzStopRun";

// A numbered preset is a named one: the host product's name and the number, from 1.
constexpr const char* PresetName = "name=Quorvane%20preset%20";
std::string PresetParameter(std::int32_t preset) { return PresetName + Text(ToInt32(preset + 1.0)); }

constexpr std::int16_t DefaultMoveInterval = 50;  // milliseconds
constexpr double DegreesPerInterval = 5;
constexpr const char* MoveIntervalOption = "MoveInterval";

// The camera's speeds, 0 the fastest.
constexpr std::int32_t UnknownSpeed = -1;
constexpr std::int32_t SlowestSpeed = 4;
constexpr std::int32_t MoveSpeed = 1;  // of moves by a number of degrees
constexpr double AmountPerSpeed = 5;   // of continuous motion

}  // namespace

const DriverData FoscamHD::Data = {
    .Move = MemberRule::False,  // the moves are made
    .MoveTo = MemberRule::FalseIfConnected,
    .MoveBoth = MemberRule::False,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .Home = MemberRule::Outcome,
    .ConnectsUnheard = true,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
};

constinit const FoscamDriver::CommandSet FoscamHD::Commands = {
    .Path = "/cgi-bin/CGIProxy.fcgi?cmd=",
    .Directions = {{
        {0, StopCommand},
        {DirectionUp, "ptzMoveUp"},
        {DirectionDown, "ptzMoveDown"},
        {DirectionLeft, "ptzMoveLeft"},
        {DirectionRight, "ptzMoveRight"},
        {DirectionUpLeft, "ptzMoveTopLeft"},
        {DirectionUpRight, "ptzMoveTopRight"},
        {DirectionDownLeft, "ptzMoveBottomLeft"},
        {DirectionDownRight, "ptzMoveBottomRight"},
    }},
};

FoscamHD::FoscamHD(const Platform& platform)
    : FoscamDriver(platform, Data, Commands),
      Platform_(platform),
      MoveInterval_(DefaultMoveInterval),
      Speed_(UnknownSpeed) {}

Capabilities FoscamHD::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityPreset | CapabilityHome | CapabilityContinuousMove |
         CapabilityExtendedOptions | CapabilitySimpleControl;
}

void FoscamHD::SetUp() {
  MoveInterval_ = Options_.Integer(MoveIntervalOption, DefaultMoveInterval);
  Speed_ = UnknownSpeed;
}

/// Those of the address, encoded as a query wants them. No request is without a query.
std::string FoscamHD::Credentials() const {
  const auto url = ParseUrl(Url(""), *Platform_.internet);
  if (url.UserName.empty() && url.Password.empty()) return {};
  return "&usr=" + UrlEncode(PercentDecode(url.UserName)) + "&pwd=" + UrlEncode(PercentDecode(url.Password));
}

/// Sends what changes; a change that failed is sent again next time.
void FoscamHD::SetSpeed(std::int32_t speed) {
  if (speed != Speed_ && SendCommand("setPTZSpeed", "speed=" + Text(speed))) Speed_ = speed;
}

/// Always False.
bool FoscamHD::MoveToPosition(float pan, float tilt) {
  const auto difference = DifferenceTo(pan, tilt);
  const auto [direction, amount] = HeadingOf(difference.Pan, difference.Tilt);
  const auto wait = ToInt32(MoveInterval_ / DegreesPerInterval * amount);
  SetSpeed(MoveSpeed);
  if (direction == 0 || !SendDirection(direction)) return false;
  // From here on the camera is moving.
  DriveFor(
      *Platform_.clock, wait, [] {}, [this] { SendCommand(StopCommand); });
  StorePosition(pan, tilt);
  return false;
}

void FoscamHD::ContinuousMove(float pan, float tilt) {
  const auto [direction, amount] = HeadingOf(pan, tilt);
  // A stop slows the camera down too.
  const auto faster = std::min<double>(Int(amount / AmountPerSpeed), SlowestSpeed);
  SetSpeed(SlowestSpeed - ToInt32(faster));
  SendContinuous(direction);
}

bool FoscamHD::PresetSave(std::int32_t preset) {
  return SendCommand("ptzAddPresetPoint", PresetParameter(preset));
}

bool FoscamHD::PresetGoto(std::int32_t preset) {
  return SendCommand("ptzGotoPresetPoint", PresetParameter(preset));
}

bool FoscamHD::Home() { return SendCommand("ptzReset"); }

std::span<const OptionRow> FoscamHD::OptionTable() const {
  static const OptionRow table[] = {
      {MoveIntervalOption, "Move interval", OptionInteger, {}, std::int32_t{DefaultMoveInterval}}};
  return table;
}

}  // namespace ptzd
