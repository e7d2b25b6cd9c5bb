// Elmo 200 series: one control page over HTTP GET, which answers "OK" or "NG". It says "NG" to a request
// without parameters, too, and is known by that. Positions are motor steps, which the camera never tells.

#include "drivers/Elmo.h"

#include <algorithm>

#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"

namespace ptzd {

namespace {

constexpr const char* ControlPath = "/cgi-bin/ctrl";
constexpr const char* SavePresetPath = "/cgi-bin/pmem?";

constexpr RequestStyle Style{
    .Failure = "Request failed.",
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

constexpr std::int32_t Presets = 6;

constexpr CommandRow<Zooms> ZoomCommands[] = {{ZoomIn, "zoom=0"}, {ZoomOut, "zoom=3"}};
constexpr CommandRow<Iris> IrisCommands[] = {
    {IrisOpen, "iris=3"}, {IrisClose, "iris=1"}, {IrisAuto, "iris=4"}};
constexpr CommandRow<Focus> FocusCommands[] = {
    {FocusNear, "fcus=0"}, {FocusFar, "fcus=3"}, {FocusAuto, "fcus=4"}};

}  // namespace

const DriverData Elmo::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .Iris = MemberRule::OutcomeIfConnected,
    .Focus = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::OutcomeIfConnected,
    .PresetSave = MemberRule::OutcomeIfConnected,
    .SharedOptions = SharesAddress | SharesReset,
};

Elmo::Elmo(const Platform& platform) : HTTPDriver(platform, Style) {}

Capabilities Elmo::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityIris | CapabilityFocus |
         CapabilityPreset | CapabilityAutoIris | CapabilityAutoFocus2;
}

bool Elmo::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  if (Options_.Text("Address").empty()) return false;
  LastReply_.clear();
  Request(ControlPath);
  if (LastReply_ != "NG") return false;  // also where it is "OK": that is not what this page says
  if (Options_.Boolean("Reset", false)) MoveToPosition({ReferencePan, ReferenceTilt});
  return Connected_ = true;
}

bool Elmo::Control(std::string_view parameters) {
  return Request(std::string(ControlPath).append("?").append(parameters)).has_value();
}

/// The nearest position to a place in steps. Raises 6 for one beyond 32 bits.
Elmo::Position Elmo::Position::Near(double panSteps, double tiltSteps) {
  return {std::clamp(ToInt32(panSteps), 0, LastPan), std::clamp(ToInt32(tiltSteps), 0, LastTilt)};
}

/// The same for degrees.
Elmo::Position Elmo::Position::At(float pan, float tilt) {
  return Near(PanScale * (pan - LeftEnd), TiltScale * (tilt - UpperEnd));
}

float Elmo::Pan() { return ToSingle(Current_.Pan / PanScale + LeftEnd); }

float Elmo::Tilt() { return ToSingle(Current_.Tilt / TiltScale + UpperEnd); }

bool Elmo::Move(Directions direction, float angle) {
  if (!Connected_) return false;
  const auto step = StepOf(direction, angle);
  return MoveToPosition(
      Position::Near(Current_.Pan + PanScale * step.Pan, Current_.Tilt + TiltScale * step.Tilt));
}

bool Elmo::MoveBoth(float panAngle, float tiltAngle) {
  if (!Connected_) return false;
  return MoveToPosition(
      Position::Near(Current_.Pan + PanScale * panAngle, Current_.Tilt + TiltScale * tiltAngle));
}

bool Elmo::MoveTo(float pan, float tilt) { return Connected_ && MoveToPosition(Position::At(pan, tilt)); }

/// Only what changes is sent; where nothing does the camera is there already.
bool Elmo::MoveToPosition(const Position& target) {
  std::string parameters;
  if (target.Pan != Current_.Pan) AppendParameter(parameters, "pana=" + Text(target.Pan));
  if (target.Tilt != Current_.Tilt) AppendParameter(parameters, "tlta=" + Text(target.Tilt));
  if (!parameters.empty() && !Control(parameters)) return false;
  Current_ = target;
  return true;
}

void Elmo::SetPanTilt(float pan, float tilt) {
  if (Connected_) Current_ = Position::At(pan, tilt);
}

bool Elmo::Zoom(Zooms zoomLevel) {
  const auto command = CommandFor(zoomLevel, ZoomCommands);
  return Connected_ && !command.empty() && Control(command);
}

bool Elmo::Iris(ptzd::Iris irisLevel) {
  const auto command = CommandFor(irisLevel, IrisCommands);
  return Connected_ && !command.empty() && Control(command);
}

bool Elmo::Focus(ptzd::Focus focusLevel) {
  const auto command = CommandFor(focusLevel, FocusCommands);
  return Connected_ && !command.empty() && Control(command);
}

std::int32_t Elmo::PresetCount() { return Presets; }

// The camera counts its presets from 1.

bool Elmo::PresetGoto(std::int32_t preset) {
  return Connected_ && preset >= 0 && preset < Presets && Control("prst=" + Text(preset + 1));
}

bool Elmo::PresetSave(std::int32_t preset) {
  return Connected_ && preset >= 0 && preset < Presets && Request(SavePresetPath + Text(preset + 1));
}

Variant Elmo::Disconnect() {
  Connected_ = false;
  return true;
}

}  // namespace ptzd
