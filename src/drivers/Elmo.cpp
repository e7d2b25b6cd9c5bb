// Elmo 200 series: one control page over HTTP GET, which answers "OK" or "NG". It says "NG" to a request
// without parameters, too, and is known by that. Positions are motor steps, which the camera never tells.

#include "drivers/Elmo.h"

#include <algorithm>

#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"
#include "drivers/kit/Options.h"

namespace ptzd {

namespace {

constexpr std::string_view ControlPath = "/cgi-bin/ctrl";
constexpr std::string_view SavePresetPath = "/cgi-bin/pmem?";

constexpr RequestStyle Style{
    .TellsWhy = false,
    .Accepts = [](std::string_view reply) { return reply == "OK"; },
};

// Motor steps per degree. Tilt counts downwards.
constexpr double PanScale = 58.08;
constexpr double TiltScale = -57.6;
constexpr double LeftEnd = -150;  // degrees at step 0
constexpr double UpperEnd = 30;   // degrees at step 0
constexpr std::int32_t LastPan = 17424;
constexpr std::int32_t LastTilt = 6912;

// Where a reset goes, about pan 0 and tilt 0.
constexpr std::int32_t ReferencePan = 8714;
constexpr std::int32_t ReferenceTilt = 1722;

constexpr CommandRow<Zooms> ZoomCommands[] = {{ZoomIn, "zoom=0"}, {ZoomOut, "zoom=3"}};
constexpr CommandRow<Iris> IrisCommands[] = {
    {IrisOpen, "iris=3"}, {IrisClose, "iris=1"}, {IrisAuto, "iris=4"}};
constexpr CommandRow<Focus> FocusCommands[] = {
    {FocusNear, "fcus=0"}, {FocusFar, "fcus=3"}, {FocusAuto, "fcus=4"}};

constexpr const DriverOption* Options[] = {&AddressOption, &ResetOption};

/// The nearest place that the motors reach, in steps. Raises 6 for one beyond 32 bits.
HeadPosition Near(double panSteps, double tiltSteps) {
  return {0.0 + std::clamp(ToInt32(panSteps), 0, LastPan), 0.0 + std::clamp(ToInt32(tiltSteps), 0, LastTilt)};
}

/// The same for degrees.
HeadPosition StepsAt(double pan, double tilt) {
  return Near(PanScale * (pan - LeftEnd), TiltScale * (tilt - UpperEnd));
}

constexpr Evidence Signs[] = {
    // So little that it proves nothing.
    {.Request = ControlPath, .Pattern = "^NG$", .Strength = Evidence::Strengths::Suggests},
};
constexpr std::string_view MakeNames[] = {"Elmo"};

}  // namespace

const DriverData Elmo::Data = {
    .Class = "QVPTZ.Elmo",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityIris | CapabilityFocus |
                    CapabilityPreset | CapabilityAutoIris | CapabilityAutoFocus2,
    .PresetCount = 6,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .Iris = MemberRule::OutcomeIfConnected,
    .Focus = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::OutcomeIfConnected,
    .PresetSave = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .PanRange = ValueRange{LeftEnd, LastPan / PanScale + LeftEnd, "degrees", Beyond::Limited},
    .TiltRange = ValueRange{LastTilt / TiltScale + UpperEnd, UpperEnd, "degrees", Beyond::Limited},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Elmo::Elmo(const Platform& platform) : HTTPDriver(Data, platform, Style) {}

bool Elmo::Open() {
  if (Fetch(ControlPath).Text != "NG")
    return false;  // also where it is "OK": that is not what this page says
  if (ResetOption.In(Options_)) GoToSteps({ReferencePan, ReferenceTilt});
  return true;
}

bool Elmo::GoTo(HeadPosition target) { return GoToSteps(StepsAt(target.Pan, target.Tilt)); }

bool Elmo::StepBy(double pan, double tilt) {
  return GoToSteps(Near(Current_.Pan + PanScale * pan, Current_.Tilt + TiltScale * tilt));
}

/// Only what changes is sent; where nothing does the camera is there already.
bool Elmo::GoToSteps(const HeadPosition& target) {
  std::string parameters;
  if (target.Pan != Current_.Pan) AppendParameter(parameters, "pana=" + Text(target.Pan));
  if (target.Tilt != Current_.Tilt) AppendParameter(parameters, "tlta=" + Text(target.Tilt));
  if (!parameters.empty() && !SendCommand(parameters)) return false;
  Current_ = target;
  return true;
}

bool Elmo::ZoomBy(Zooms direction, float) { return SendCommand(CommandFor(direction, ZoomCommands)); }

bool Elmo::SetIris(ptzd::Iris level) {
  const auto command = CommandFor(level, IrisCommands);
  return !command.empty() && SendCommand(command);
}

bool Elmo::SetFocus(ptzd::Focus level) {
  const auto command = CommandFor(level, FocusCommands);
  return !command.empty() && SendCommand(command);
}

// The camera counts its presets from 1.

bool Elmo::SavePreset(std::int32_t preset) {
  return preset >= 0 && preset < Data.PresetCount && Request(SavePresetPath + Text(preset + 1));
}

bool Elmo::GoToPreset(std::int32_t preset) {
  return preset >= 0 && preset < Data.PresetCount && SendCommand("prst=" + Text(preset + 1));
}

float Elmo::Pan() { return ToSingle(Current_.Pan / PanScale + LeftEnd); }

float Elmo::Tilt() { return ToSingle(Current_.Tilt / TiltScale + UpperEnd); }

void Elmo::TakePlace(float pan, float tilt) { Current_ = StepsAt(pan, tilt); }

bool Elmo::SendCommand(std::string_view parameters) {
  return Request(std::string(ControlPath).append("?").append(parameters)).has_value();
}

}  // namespace ptzd
