// Foscam cameras of the older generation: a step is "command=6&onestep=1&degree=10"; without parameters a
// direction runs until the command 5. A preset has a command to save it and the next one to recall it.

#include "drivers/Foscam.h"

#include "common/Numbers.h"

namespace ptzd {

namespace {

constexpr std::string_view StepParameters = "onestep=1&degree=";
constexpr double FirstSaveCommand = 30, FirstGotoCommand = 31, CommandsPerPreset = 2;
constexpr TypedOption<bool> InvertPanOption{{.Name = "InvertPan",
                                             .Description = "Invert the pan controls",
                                             .OType = OptionBoolean,
                                             .Default = false}};
constexpr const DriverOption* Options[] = {&AddressOption, &InvertPanOption};

constexpr bool IsDiagonal(std::int32_t direction) { return (direction & (direction - 1)) != 0; }

constexpr Evidence Signs[] = {
    {.Request = "/get_status.cgi", .Pattern = "var sys_ver=*var alarm_status="},  // told without a login
    {Evidence::Places::Headers, "", "Server: Netwave IP Camera", Evidence::Strengths::Suggests},
    {Evidence::Places::Headers, "", "realm=\"ipcamera_", Evidence::Strengths::Suggests},
};
constexpr std::string_view MakeNames[] = {"Foscam"};

}  // namespace

const DriverData Foscam::Data = {
    .Class = "QVPTZ.Foscam",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityPreset | CapabilityContinuousMove |
                    CapabilityExtendedOptions | CapabilityRelativeControl,
    .PresetCount = 16,
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .OppositesCancel = true,
    .PanRange = ValueRange{},
    .TiltRange = ValueRange{},
    .PanSpeed = ValueRange{.Ends = Beyond::SignOnly},
    .TiltSpeed = ValueRange{.Ends = Beyond::SignOnly},
    .AsksToConnect = false,
    .ConnectsUnheard = true,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No device address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

constinit const FoscamDriver::CommandSet Foscam::Commands = {
    .Path = "/decoder_control.cgi?command=",
    .Directions = {{
        {0, "5"},
        {DirectionUp, "0"},
        {DirectionDown, "2"},
        {DirectionLeft, "4"},
        {DirectionRight, "6"},
        {DirectionUpLeft, "90"},
        {DirectionUpRight, "91"},
        {DirectionDownLeft, "92"},
        {DirectionDownRight, "93"},
    }},
};

Foscam::Foscam(const Platform& platform) : FoscamDriver(Data, platform, Commands) {}

bool Foscam::GoTo(HeadPosition target) {
  target = {ToSingle(target.Pan), ToSingle(target.Tilt)};
  const auto difference = DifferenceTo(target);
  const float panBy = InvertIfAsked(difference.Pan), tiltBy = difference.Tilt;
  const auto [direction, amount] = HeadingOf(panBy, tiltBy);
  if (direction != 0) {
    // A diagonal goes by the mean of the signed differences on purpose, which can be 0 or less.
    const float degree = IsDiagonal(direction) ? ToSingle((static_cast<double>(panBy) + tiltBy) / 2) : amount;
    if (!SendDirection(direction, std::string(StepParameters) + Text(degree))) return false;
  }
  Current_ = target;
  return true;
}

bool Foscam::SavePreset(std::int32_t preset) {
  return SendNumbered(CommandsPerPreset * preset + FirstSaveCommand);
}

bool Foscam::GoToPreset(std::int32_t preset) {
  return SendNumbered(CommandsPerPreset * preset + FirstGotoCommand);
}

void Foscam::ContinuousMove(float pan, float tilt) {
  SendContinuous(HeadingOf(InvertIfAsked(pan), tilt).Direction);
}

float Foscam::InvertIfAsked(float pan) const { return InvertPanOption.In(Options_) ? -pan : pan; }

bool Foscam::SendNumbered(double command) { return SendCommand(Text(ToInt32(command))); }

}  // namespace ptzd
