// Foscam cameras of the older generation: a step is "command=6&onestep=1&degree=10"; without parameters a
// direction runs until the command 5. A preset has a command to save it and the next one to recall it.

#include "drivers/Foscam.h"

#include "common/Numbers.h"

namespace ptzd {

namespace {

constexpr std::string_view StepParameters = "onestep=1&degree=";
constexpr double FirstSaveCommand = 30, FirstGotoCommand = 31, CommandsPerPreset = 2;
constexpr const char* InvertPanOption = "InvertPan";

constexpr bool IsDiagonal(std::int32_t direction) { return (direction & (direction - 1)) != 0; }

}  // namespace

const DriverData Foscam::Data = {
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .ConnectsUnheard = true,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No device address specified"},
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

Foscam::Foscam(const Platform& platform) : FoscamDriver(platform, Data, Commands) {}

Capabilities Foscam::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityPreset | CapabilityContinuousMove |
         CapabilityExtendedOptions | CapabilityRelativeControl;
}

float Foscam::InvertIfAsked(float pan) const { return Options_.Boolean(InvertPanOption, false) ? -pan : pan; }

bool Foscam::MoveToPosition(float pan, float tilt) {
  const auto difference = DifferenceTo(pan, tilt);
  const float panBy = InvertIfAsked(difference.Pan), tiltBy = difference.Tilt;
  const auto [direction, amount] = HeadingOf(panBy, tiltBy);
  if (direction != 0) {
    // A diagonal goes by the mean of the signed differences on purpose, which can be 0 or less.
    const float degree = IsDiagonal(direction) ? ToSingle((static_cast<double>(panBy) + tiltBy) / 2) : amount;
    if (!SendDirection(direction, std::string(StepParameters) + Text(degree))) return false;
  }
  StorePosition(pan, tilt);
  return true;
}

void Foscam::ContinuousMove(float pan, float tilt) {
  SendContinuous(HeadingOf(InvertIfAsked(pan), tilt).Direction);
}

bool Foscam::PresetSave(std::int32_t preset) {
  return SendNumbered(CommandsPerPreset * preset + FirstSaveCommand);
}

bool Foscam::PresetGoto(std::int32_t preset) {
  return SendNumbered(CommandsPerPreset * preset + FirstGotoCommand);
}

bool Foscam::SendNumbered(double command) { return SendCommand(Text(ToInt32(command))); }

std::span<const OptionRow> Foscam::OptionTable() const {
  static const OptionRow table[] = {{InvertPanOption, "Invert the pan controls", OptionBoolean, {}, false}};
  return table;
}

}  // namespace ptzd
