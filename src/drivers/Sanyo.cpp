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
#include "drivers/kit/Options.h"

namespace ptzd {

namespace {

constexpr std::string_view IndexPath = "/index.html";
constexpr std::string_view StatusPath = "/liveimg.cgi?pol=1";
constexpr std::string_view OperationPath = "/cgi-bin/opecmd.cgi?ope=";

enum Command : std::int32_t {
  SaveCommand = 8,
  RecallCommand = 11,
  ZoomStepIn = 18,
  ZoomStepOut = 19,
  Step = 20,
  Continuous = 51,
};

constexpr std::int32_t KeepAliveInterval = 60000;  // milliseconds

// A hundred percent are half the picture, whose angles are in degrees.
constexpr double PictureWidth = 55, PictureHeight = 30;
constexpr double PercentPerDegree(double picture) { return 100 / (picture / 2); }

// The status reply: flags that say what is missing, then words of hundredths.
constexpr std::size_t FlagsOffset = 5, PanOffset = 16, TiltOffset = 18, ZoomOffset = 20;
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

constexpr const DriverOption* Options[] = {&AddressOption};

constexpr Evidence Signs[] = {
    // Opens the session that the status is told in: 22 bytes, then a picture.
    {.Request = IndexPath},
    {.Request = StatusPath, .Pattern = "^??????????????????????\xFF\xD8\xFF"},
};
constexpr std::string_view MakeNames[] = {"Sanyo"};

}  // namespace

const DriverData Sanyo::Data = {
    .Class = "QVPTZ.Sanyo",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityPreset |
                    CapabilityContinuousMove | CapabilityRelativeControl | CapabilityContinuousZoom,
    .PresetCount = 255,
    .Move = MemberRule::Succeeds,
    .MoveTo = MemberRule::Succeeds,
    .MoveBoth = MemberRule::Succeeds,
    .Zoom = MemberRule::Succeeds,
    .PresetGoto = MemberRule::Succeeds,
    .PresetSave = MemberRule::Succeeds,
    .SetPanTilt = PlaceRule::AsksAnew,
    .OppositesCancel = true,
    .SendsEmptyZooms = true,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom | AsksBeforeAnswer,
    .PanRange = ValueRange{},
    .TiltRange = ValueRange{},
    .PanSpeed = ValueRange{-Speeds, Speeds, "twentieths of the fastest"},
    .TiltSpeed = ValueRange{-Speeds, Speeds, "twentieths of the fastest"},
    .ZoomSpeed = ValueRange{.Ends = Beyond::SignOnly},
    .NoAddress = DriverData::Failure{PTZErrorConnectionFailed, "No device address specified."},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Sanyo::Sanyo(const Platform& platform)
    : HTTPDriver(Data, platform, SendingStyle), ContinuousDriver(Data), DescribedOptions(Data) {}

bool Sanyo::Open() {
  FetchBytes(IndexPath);
  LastKeepAlive_ = TickCount();
  PanFactor_ = ToSingle(PercentPerDegree(PictureWidth));
  TiltFactor_ = ToSingle(PercentPerDegree(PictureHeight));
  ReadPosition();
  return true;
}

bool Sanyo::GoTo(HeadPosition target) {
  target = {ToSingle(target.Pan), ToSingle(target.Tilt), ToSingle(std::max(target.Zoom, 0.0))};
  std::string parameters;
  if (target.Pan != Current_.Pan)
    AppendParameter(parameters, StepText("pan", ToSingle(target.Pan - Current_.Pan) * PanFactor_));
  if (target.Tilt != Current_.Tilt)
    AppendParameter(parameters, StepText("tilt", ToSingle(target.Tilt - Current_.Tilt) * TiltFactor_));
  if (!parameters.empty()) SendOpeCmd(Step, parameters);
  // The zoom takes a step of the camera's own, however far it is.
  if (target.Zoom != Current_.Zoom) SendOpeCmd(target.Zoom < Current_.Zoom ? ZoomStepOut : ZoomStepIn);
  Current_ = target;
  return true;
}

// The camera counts presets from 1.

bool Sanyo::SavePreset(std::int32_t preset) {
  return SendOpeCmd(SaveCommand, "registration=" + Text(ToInt32(preset + 1.0)));
}

bool Sanyo::GoToPreset(std::int32_t preset) {
  return SendOpeCmd(RecallCommand, "execution=" + Text(ToInt32(preset + 1.0)));
}

void Sanyo::ContinuousMove(float pan, float tilt) {
  const auto code = DirectionCodes[Sign(pan) + 1][Sign(tilt) + 1];
  SendOpeCmd(Continuous, "cmd=" + Text(code) + "&p_speed=" + SpeedText(pan) + "&t_speed=" + SpeedText(tilt));
  PositionAge_.Expire();
}

void Sanyo::ContinuousZoom(float amount) {
  SendOpeCmd(Continuous, "cmd=" + Text(amount > 0 ? TeleCode : amount < 0 ? WideCode : StopZoomCode));
  PositionAge_.Expire();
}

/// Raises 9 where the reply ends early; what stands before that is taken over.
void Sanyo::QueryPosition() {
  Bytes reply;
  try {
    reply = FetchBytes(StatusPath);
  } catch (const Error&) {
    return;  // the position stays what it was
  }
  if ((ByteAt(reply, FlagsOffset) & NoPanTilt) == 0) {
    Current_.Pan = HundredthsAt(reply, PanOffset);
    Current_.Tilt = HundredthsAt(reply, TiltOffset);
  }
  if ((ByteAt(reply, FlagsOffset) & NoZoom) == 0) Current_.Zoom = HundredthsAt(reply, ZoomOffset);
}

bool Sanyo::SendOpeCmd(std::int32_t command, std::string_view parameters) {
  KeepAlive();
  auto path = std::string(OperationPath) + Text(command);
  if (!parameters.empty()) path.append("&").append(parameters);
  return Request(path).has_value();
}

void Sanyo::KeepAlive() {
  if (TimeDiff(LastKeepAlive_, TickCount()) <= KeepAliveInterval) return;
  try {
    FetchBytes(IndexPath);
  } catch (const Error&) {
    // Nobody asked for this request; the command that follows shows that the camera is gone.
  }
  LastKeepAlive_ = TickCount();
}

/// What is no text: the session's page, of which nothing is wanted, and the position.
Bytes Sanyo::FetchBytes(std::string_view path) {
  const LogScope scope(Subject_);
  LogMessage("Sending: " + Url(path));
  auto reply = Get(path);
  LogMessage("Received: " + Text(ToInt32(static_cast<double>(reply.size()))) + " bytes");
  return reply;
}

}  // namespace ptzd
