// Sanyo network cameras: numbered operation commands over HTTP GET, taken with any reply, in a session that
// the camera's index page opens and keeps alive. Steps are percent of half the picture; the position comes as
// big-endian words in a binary reply.

#include "drivers/Sanyo.h"

#include <algorithm>
#include <cmath>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "common/TimeDiffMod.h"
#include "drivers/kit/DriverErrors.h"

namespace ptzd {

namespace {

constexpr std::string_view IndexPath = "/index.html";
constexpr std::string_view StatusPath = "/liveimg.cgi?pol=1";
constexpr std::string_view OperationPath = "/cgi-bin/opecmd.cgi?ope=";

enum Command : std::int32_t {
  SavePreset = 8,
  RecallPreset = 11,
  ZoomStepIn = 18,
  ZoomStepOut = 19,
  Step = 20,
  Continuous = 51,
};

constexpr std::int32_t KeepAliveInterval = 60000;  // milliseconds
constexpr std::int32_t Presets = 255;
constexpr float ZoomStep = 0.25F;  // of the model; the camera's own step is what it is

// A hundred percent are half the picture, whose angles are in degrees.
constexpr double PictureWidth = 55, PictureHeight = 30;
constexpr double PercentPerDegree(double picture) { return 100 / (picture / 2); }

// The status reply: flags that say what is missing, then words of hundredths.
constexpr std::size_t FlagsAt = 5, PanAt = 16, TiltAt = 18, ZoomAt = 20;
constexpr unsigned NoPanTilt = 1, NoZoom = 2;
constexpr double StatusUnits = 100;

// Direction codes of continuous motion, by pan and tilt to the left or down, none, to the right or up.
constexpr std::int32_t DirectionCodes[3][3] = {{6, 4, 1}, {7, 12, 2}, {8, 5, 3}};
constexpr std::int32_t TeleCode = 9, WideCode = 10, StopZoomCode = 11;
constexpr double CameraSpeeds = 7, Speeds = 20;  // the top ones

int Sign(float value) { return value > 0 ? 1 : value < 0 ? -1 : 0; }

/// Toward minus infinity before the sign is lost, on purpose: -1 is speed 1, and 1 is speed 0.
std::string SpeedText(float speed) {
  return Text(ToInt32(std::abs(Int(ToSingle(ToSingle(speed * CameraSpeeds) / Speeds)))));
}

/// Such as "pan_dir=2&pan_percent=18". The amount is a single: what the factors lack of their exact value
/// would move the ties of a double.
std::string StepText(const std::string& axis, float amount) {
  const double percent = ToInt32(amount);
  return axis + "_dir=" + (percent < 0 ? "2" : "1") + "&" + axis +
         "_percent=" + Text(ToInt32(std::abs(percent)));
}

unsigned ByteAt(const Bytes& reply, std::size_t at) {
  if (at >= reply.size()) Raise(ErrorSubscript);
  return reply[at];
}

float HundredthsAt(const Bytes& reply, std::size_t at) {
  const auto word = static_cast<std::int16_t>(ByteAt(reply, at) << 8 | ByteAt(reply, at + 1));
  return ToSingle(word / StatusUnits);
}

}  // namespace

const DriverData Sanyo::Data = {
    .Move = MemberRule::True,
    .MoveTo = MemberRule::True,
    .MoveBoth = MemberRule::True,
    .Zoom = MemberRule::True,
    .PresetGoto = MemberRule::True,
    .PresetSave = MemberRule::True,
    .ReadsPosition = PositionReading::Always,
    .NoAddress = DriverData::Failure{PTZErrorConnectionFailed, "No device address specified."},
};

Sanyo::Sanyo(const Platform& platform) : HTTPDriver(platform, SendingStyle) {}

Capabilities Sanyo::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityPreset | CapabilityContinuousMove |
         CapabilityRelativeControl | CapabilityContinuousZoom;
}

bool Sanyo::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data);
  Fetch(IndexPath);
  LastKeepAlive_ = TickCount();
  PanFactor_ = ToSingle(PercentPerDegree(PictureWidth));
  TiltFactor_ = ToSingle(PercentPerDegree(PictureHeight));
  ReadStatus();
  Connected_ = true;
  return true;
}

Variant Sanyo::Disconnect() {
  Connected_ = false;
  return true;
}

bool Sanyo::SendOpeCmd(std::int32_t command, std::string_view parameters) {
  KeepAlive();
  auto path = std::string(OperationPath) + Text(command);
  if (!parameters.empty()) path.append("&").append(parameters);
  return Request(path).has_value();
}

/// What is no text: the session's page, of which nothing is wanted, and the position.
Bytes Sanyo::Fetch(std::string_view path) {
  const auto url = Url(path);
  LogMessage("Sending: " + url);
  auto reply = Client_.GetResource(url, "", "");
  LogMessage("Received: " + Text(ToInt32(static_cast<double>(reply.size()))) + " bytes");
  return reply;
}

void Sanyo::KeepAlive() {
  if (TimeDiff(LastKeepAlive_, TickCount()) <= KeepAliveInterval) return;
  try {
    Fetch(IndexPath);
  } catch (const Error&) {
    // Nobody asked for this request; the command that follows shows that the camera is gone.
  }
  LastKeepAlive_ = TickCount();
}

void Sanyo::RefreshStatus() {
  if (StatusAge_.IsDue(TickCount())) ReadStatus();
}

/// Raises 9 where the reply ends early; what stands before that is taken over.
void Sanyo::ReadStatus() {
  StatusAge_.Set(TickCount());
  StatusAge_.Asked();
  Bytes reply;
  try {
    reply = Fetch(StatusPath);
  } catch (const Error&) {
    return;  // the position stays what it was
  }
  if ((ByteAt(reply, FlagsAt) & NoPanTilt) == 0) {
    CurrentPan_ = HundredthsAt(reply, PanAt);
    CurrentTilt_ = HundredthsAt(reply, TiltAt);
  }
  if ((ByteAt(reply, FlagsAt) & NoZoom) == 0) CurrentZoom_ = HundredthsAt(reply, ZoomAt);
}

float Sanyo::Pan() {
  RefreshStatus();
  return CurrentPan_;
}

float Sanyo::Tilt() {
  RefreshStatus();
  return CurrentTilt_;
}

bool Sanyo::Move(Directions direction, float angle) {
  RefreshStatus();
  const auto step = CancellingStepOf(direction, angle);
  return StepTo(CurrentPan_ + step.Pan, CurrentTilt_ + step.Tilt, CurrentZoom_);
}

bool Sanyo::MoveBoth(float panAngle, float tiltAngle) {
  RefreshStatus();
  return StepTo(static_cast<double>(CurrentPan_) + panAngle, static_cast<double>(CurrentTilt_) + tiltAngle,
                CurrentZoom_);
}

bool Sanyo::MoveTo(float pan, float tilt) { return StepTo(pan, tilt, CurrentZoom_); }

bool Sanyo::Zoom(Zooms zoomLevel) {
  RefreshStatus();
  return StepTo(CurrentPan_, CurrentTilt_, CurrentZoom_ + ZoomStepOf(zoomLevel, ZoomStep));
}

bool Sanyo::StepTo(double targetPan, double targetTilt, double targetZoom) {
  const auto pan = ToSingle(targetPan), tilt = ToSingle(targetTilt);
  const auto zoom = ToSingle(std::max(targetZoom, 0.0));
  std::string parameters;
  if (pan != CurrentPan_) AppendParameter(parameters, StepText("pan", (pan - CurrentPan_) * PanFactor_));
  if (tilt != CurrentTilt_)
    AppendParameter(parameters, StepText("tilt", (tilt - CurrentTilt_) * TiltFactor_));
  if (!parameters.empty()) SendOpeCmd(Step, parameters);
  if (zoom != CurrentZoom_) SendOpeCmd(zoom < CurrentZoom_ ? ZoomStepOut : ZoomStepIn);
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
  return true;  // whatever became of the commands, on purpose
}

void Sanyo::SetPanTilt(float, float) { StatusAge_.Expire(); }

std::int32_t Sanyo::PresetCount() { return Presets; }

// The camera counts presets from 1. Both answer True also where nothing answered, on purpose.
bool Sanyo::PresetSave(std::int32_t preset) {
  SendOpeCmd(SavePreset, "registration=" + Text(ToInt32(preset + 1.0)));
  return true;
}

bool Sanyo::PresetGoto(std::int32_t preset) {
  SendOpeCmd(RecallPreset, "execution=" + Text(ToInt32(preset + 1.0)));
  return true;
}

void Sanyo::ContinuousMove(float pan, float tilt) {
  const auto code = DirectionCodes[Sign(pan) + 1][Sign(tilt) + 1];
  SendOpeCmd(Continuous, "cmd=" + Text(code) + "&p_speed=" + SpeedText(pan) + "&t_speed=" + SpeedText(tilt));
  StatusAge_.Expire();
}

void Sanyo::ContinuousZoom(float amount) {
  SendOpeCmd(Continuous, "cmd=" + Text(amount > 0 ? TeleCode : amount < 0 ? WideCode : StopZoomCode));
  StatusAge_.Expire();
}

}  // namespace ptzd
