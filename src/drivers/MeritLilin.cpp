// Merit Lilin domes and video servers: HTTP GET of the pages "control", "ptzpreset" and "camera", of a camera
// chosen with "camid=". Positions come as rows of "panposdegree=350"; a command is accepted by any reply.
// Pan is told from 0 to 359 with 180 ahead, tilt downwards, and a positive zoom speed zooms out.

#include "drivers/MeritLilin.h"

#include "common/Angles.h"
#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"
#include "drivers/kit/DriverErrors.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view ControlPage = "control";
constexpr std::string_view PresetPage = "ptzpreset";
constexpr std::string_view CameraPage = "camera";

constexpr const char* StopMoveCommand = "stop=1";
constexpr const char* StopZoomCommand = "zoom_stop=1";

constexpr std::int32_t NumberedPresets = 128;
constexpr std::int32_t Ahead = 180;                 // the camera's pan where ours is 0, degrees
constexpr double ZoomFactors = 4, WidestZoom = 1;   // of the camera: per zoom unit, and where ours is 0
constexpr double FastestTurn = 20, CameraTurn = 8;  // the same speed, here and in the camera
constexpr double ZoomSpeedUnits = 2;                // for a zoom speed of 1 in the camera

std::string TurnSpeedText(float speed) {
  return Text(ToSingle(Int(ToSingle(ToSingle(speed / FastestTurn) * CameraTurn))));
}

/// The sign is turned after rounding down: 3 is sent as -1, -3 as 2.
std::string ZoomSpeedText(float speed) { return Text(ToSingle(-Int(ToSingle(speed / ZoomSpeedUnits)))); }

constexpr CommandRow<Iris> IrisCommands[] = {
    {IrisAuto, "autoiris=1"}, {IrisOpen, "iris=1"}, {IrisClose, "iris=-1"}};
constexpr CommandRow<Focus> FocusCommands[] = {
    {FocusAuto, "autofocus=1"}, {FocusNear, "focus=-1"}, {FocusFar, "focus=1"}};

}  // namespace

const DriverData MeritLilin::Data = {
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::Outcome,
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .Iris = MemberRule::Outcome,
    .Focus = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .DisconnectAnswersTrue = false,
    .ReadsPosition = PositionReading::BeforeSteps,
    .SharedOptions = SharesAddress | SharesPort,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
};

MeritLilin::MeritLilin(const Platform& platform) : AbsoluteDriver(platform, SendingStyle) {}

/// Without the flag of extended options: the collection of them is there, and empty.
Capabilities MeritLilin::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityIris | CapabilityFocus |
         CapabilityPreset | CapabilityAutoIris | CapabilityAutoFocus | CapabilityAutoFocus2 |
         CapabilityMultiport | CapabilityContinuousMove | CapabilityContinuousZoom;
}

bool MeritLilin::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data);
  if (!Request("/")) Raise(PTZErrorConnectionFailed, "Unable to connect to the device.");
  ReadPosition();
  Connected_ = true;
  return true;
}

std::string MeritLilin::PagePath(std::string_view page, std::string_view parameters) const {
  std::string path = "/" + std::string(page) + "?";
  if (const auto port = Options_.Integer("Port", 0); port != 0)
    path += "camid=" + Text(std::int32_t{port}) + "&";
  return path.append(parameters);
}

std::optional<std::string> MeritLilin::SendCommand(std::string_view page, std::string_view parameters) {
  return Request(PagePath(page, parameters));
}

std::optional<HeadPosition> MeritLilin::QueryPosition() {
  const auto reply = SendCommand(ControlPage, "cmd=getallposdegree");
  if (!reply) return std::nullopt;
  auto position = Current_;
  for (const auto& [name, value] : Split2D(*reply, "\n", "=")) {
    if (name == "panposdegree") position.Pan = ToSingle(Val(value) - Ahead);
    if (name == "tiltposdegree") position.Tilt = ToSingle(-Val(value));
    if (name == "zoomposdegree") position.Zoom = ToSingle((Val(value) - WidestZoom) / ZoomFactors);
  }
  return position;
}

bool MeritLilin::SetPosition(HeadPosition target) {
  target.Pan = WithinHalfTurn(target.Pan);
  if (target.Pan == 180) target.Pan = -180;
  target.Tilt = ToSingle(target.Tilt);
  if (target.Zoom <= 0) target.Zoom = 0;

  const auto pan = ToInt32(Int(target.Pan) + Ahead), tilt = ToInt32(-Int(target.Tilt));
  const auto zoom = ToSingle(target.Zoom * ZoomFactors + WidestZoom);
  if (!SendCommand(ControlPage, "panposdegree=" + Text(pan) + "&tiltposdegree=" + Text(tilt) +
                                    "&zoomposdegree=" + Text(zoom)))
    return false;
  Current_ = target;
  return true;
}

/// Unlike `MoveTo` it goes on from where the head is, which continuous motion may have turned.
void MeritLilin::ZoomTo(float zoom) {
  const auto target = ToSingle(zoom);
  RefreshPosition();
  AbsoluteDriver::ZoomTo(target);
}

bool MeritLilin::Iris(ptzd::Iris irisLevel) {
  const auto command = CommandFor(irisLevel, IrisCommands);
  return !command.empty() && SendCommand(CameraPage, command);
}

bool MeritLilin::Focus(ptzd::Focus focusLevel) {
  const auto command = CommandFor(focusLevel, FocusCommands);
  return !command.empty() && SendCommand(CameraPage, command);
}

std::int32_t MeritLilin::PresetCount() { return NumberedPresets; }

bool MeritLilin::PresetSave(std::int32_t preset) {
  return SendCommand(PresetPage, "set_preset=" + Text(preset)).has_value();
}

bool MeritLilin::PresetGoto(std::int32_t preset) {
  return SendCommand(PresetPage, "goto_preset=" + Text(preset)).has_value();
}

void MeritLilin::ContinuousMove(float pan, float tilt) {
  const bool isStop = pan == 0 && tilt == 0;
  SendContinuous(isStop ? StopMoveCommand : "rpan=" + TurnSpeedText(pan) + "&rtilt=" + TurnSpeedText(tilt),
                 isStop, LastMove_);
}

void MeritLilin::ContinuousZoom(float amount) {
  const bool isStop = amount == 0;
  SendContinuous(isStop ? StopZoomCommand : "rzoom=" + ZoomSpeedText(amount), isStop, LastZoom_);
}

void MeritLilin::SendContinuous(const std::string& parameters, bool isStop, LastMotion<std::string>& last) {
  const auto path = PagePath(ControlPage, parameters);
  if (!last.Replace(parameters, isStop)) return;
  Request(path);
  PositionAge_.Expire();
}

}  // namespace ptzd
