// Foscam HD cameras: "cmd=ptzMoveRight" runs until "cmd=ptzStopRun", at the speed set last. Credentials stand
// in the query of every request. Replies are XML with a result code, which is not looked at.

#include "drivers/FoscamHD.h"

#include <algorithm>

#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/TimedMove.h"
#include "transport/HTTP.h"

namespace ptzd {

namespace {

constexpr std::string_view StopCommand = "ptzStopRun";

// A numbered preset is a named one: the host product's name and the number, from 1.
constexpr std::string_view PresetName = "name=Quorvane%20preset%20";
std::string PresetParameter(std::int32_t preset) { return PresetName + Text(ToInt32(preset + 1.0)); }

constexpr std::int32_t DefaultMoveInterval = 50;  // milliseconds
constexpr double DegreesPerInterval = 5;
constexpr TypedOption<std::int16_t> MoveIntervalOption{{.Name = "MoveInterval",
                                                        .Description = "Move interval",
                                                        .OType = OptionInteger,
                                                        .Default = DefaultMoveInterval}};
constexpr const DriverOption* Options[] = {&AddressOption, &MoveIntervalOption};

// The camera's speeds, 0 the fastest.
constexpr std::int32_t UnknownSpeed = -1;
constexpr std::int32_t SlowestSpeed = 4;
constexpr std::int32_t MoveSpeed = 1;  // of moves by a number of degrees
constexpr double AmountPerSpeed = 5;   // of continuous motion

constexpr Evidence Signs[] = {
    // Without a login the result is an error, in the same form.
    {.Request = "/cgi-bin/CGIProxy.fcgi?cmd=getDevInfo", .Pattern = "<CGI_Result>*<result>*</result>"},
};
constexpr std::string_view MakeNames[] = {"Foscam"};

}  // namespace

const DriverData FoscamHD::Data = {
    .Class = "QVPTZ.FoscamHD",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityPreset | CapabilityHome |
                    CapabilityContinuousMove | CapabilityExtendedOptions | CapabilitySimpleControl,
    .PresetCount = 16,
    .Move = MemberRule::Fails,  // the moves are made
    .MoveTo = MemberRule::FailsIfConnected,
    .MoveBoth = MemberRule::Fails,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .Home = MemberRule::Outcome,
    .OppositesCancel = true,
    .PanRange = ValueRange{},
    .TiltRange = ValueRange{},
    .PanSpeed = ValueRange{-20, 20, "fifths of a camera step", Beyond::Limited},
    .TiltSpeed = ValueRange{-20, 20, "fifths of a camera step", Beyond::Limited},
    .AsksToConnect = false,
    .ConnectsUnheard = true,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
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
    : FoscamDriver(Data, platform, Commands), MoveInterval_(DefaultMoveInterval), Speed_(UnknownSpeed) {}

bool FoscamHD::Open() {
  MoveInterval_ = MoveIntervalOption.In(Options_);
  Speed_ = UnknownSpeed;
  return true;
}

bool FoscamHD::GoTo(HeadPosition target) {
  target = {ToSingle(target.Pan), ToSingle(target.Tilt)};
  const auto difference = DifferenceTo(target);
  const auto [direction, amount] = HeadingOf(difference.Pan, difference.Tilt);
  const auto wait = ToInt32(MoveInterval_ / DegreesPerInterval * amount);
  SetSpeed(MoveSpeed);
  if (direction == 0 || !SendDirection(direction)) return false;
  // From here on the camera is moving.
  DriveFor(
      *Platform_.Clock, wait, [] {}, [this] { SendCommand(StopCommand); });
  Current_ = target;
  return true;
}

bool FoscamHD::SavePreset(std::int32_t preset) {
  return SendCommand("ptzAddPresetPoint", PresetParameter(preset));
}

bool FoscamHD::GoToPreset(std::int32_t preset) {
  return SendCommand("ptzGotoPresetPoint", PresetParameter(preset));
}

bool FoscamHD::GoHome() { return SendCommand("ptzReset"); }

void FoscamHD::ContinuousMove(float pan, float tilt) {
  const auto [direction, amount] = HeadingOf(pan, tilt);
  // A stop slows the camera down too.
  const auto faster = std::min<double>(Int(amount / AmountPerSpeed), SlowestSpeed);
  SetSpeed(SlowestSpeed - ToInt32(faster));
  SendContinuous(direction);
}

/// Sends what changes; a change that failed is sent again next time.
void FoscamHD::SetSpeed(std::int32_t speed) {
  if (speed != Speed_ && SendCommand("setPTZSpeed", "speed=" + Text(speed))) Speed_ = speed;
}

/// Those of the address, encoded as a query wants them. No request is without a query.
std::string FoscamHD::Credentials() const {
  const auto url = ParseUrl(Url(""), *Platform_.Internet);
  if (url.UserName.empty() && url.Password.empty()) return {};
  return "&usr=" + UrlEncode(PercentDecode(url.UserName)) + "&pwd=" + UrlEncode(PercentDecode(url.Password));
}

}  // namespace ptzd
