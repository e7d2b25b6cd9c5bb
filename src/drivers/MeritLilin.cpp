// Merit Lilin domes and video servers: HTTP GET of the pages "control", "ptzpreset" and "camera", of a camera
// chosen with "camid=". Positions come as rows of "panposdegree=350"; a command is accepted by any reply.
// Pan is told from 0 to 359 with 180 ahead, tilt downwards, and a positive zoom speed zooms out.

#include "drivers/MeritLilin.h"

#include <algorithm>

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

constexpr std::string_view StopMoveCommand = "stop=1";
constexpr std::string_view StopZoomCommand = "zoom_stop=1";

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

constexpr const DriverOption* Options[] = {&AddressOption, &PortOption<std::int16_t>};

constexpr Evidence Signs[] = {
    {.Request = "/control?cmd=getallposdegree", .Pattern = "panposdegree=*tiltposdegree="},
};
constexpr std::string_view MakeNames[] = {"Merit Lilin", "Lilin"};

}  // namespace

const DriverData MeritLilin::Data = {
    .Class = "QVPTZ.MeritLilin",
    // Without the flag of extended options: the collection of them is there, and empty.
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityIris | CapabilityFocus |
                    CapabilityPreset | CapabilityAutoIris | CapabilityAutoFocus | CapabilityAutoFocus2 |
                    CapabilityMultiport | CapabilityContinuousMove | CapabilityContinuousZoom,
    .PresetCount = 128,
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::Outcome,
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .Iris = MemberRule::Outcome,
    .Focus = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .DisconnectAnswersTrue = false,
    .OppositesCancel = true,
    .SendsEmptyZooms = true,
    // Unlike `MoveTo`, `ZoomTo` goes on from where the head is, which continuous motion may have turned.
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom | AsksBeforeZoomTo,
    .PanRange = ValueRange{-180, 180, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{},
    .ZoomRange = ValueRange{.Least = 0, .Unit = "4 magnifications"},
    .PanSpeed = ValueRange{-FastestTurn, FastestTurn, "twentieths of the fastest"},
    .TiltSpeed = ValueRange{-FastestTurn, FastestTurn, "twentieths of the fastest"},
    .ZoomSpeed = ValueRange{-16, 16, "sixteenths of the fastest"},
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

MeritLilin::MeritLilin(const Platform& platform)
    : WithZoom(Data, platform, SendingStyle), ContinuousDriver(Data), DescribedOptions(Data) {}

bool MeritLilin::Open() {
  if (!Request("/")) Raise(PTZErrorConnectionFailed, "Unable to connect to the device.");
  ReadPosition();
  return true;
}

bool MeritLilin::GoTo(HeadPosition target) {
  target = {WithinHalfTurn(ToSingle(target.Pan)), ToSingle(target.Tilt),
            ToSingle(std::max(target.Zoom, 0.0))};
  if (target.Pan == 180) target.Pan = -180;

  const auto pan = ToInt32(Int(target.Pan) + Ahead), tilt = ToInt32(-Int(target.Tilt));
  const auto zoom = ToSingle(target.Zoom * ZoomFactors + WidestZoom);
  if (!SendCommand(ControlPage, "panposdegree=" + Text(pan) + "&tiltposdegree=" + Text(tilt) +
                                    "&zoomposdegree=" + Text(zoom)))
    return false;
  Current_ = target;
  return true;
}

bool MeritLilin::SetIris(ptzd::Iris level) {
  const auto command = CommandFor(level, IrisCommands);
  return !command.empty() && SendCommand(CameraPage, command);
}

bool MeritLilin::SetFocus(ptzd::Focus level) {
  const auto command = CommandFor(level, FocusCommands);
  return !command.empty() && SendCommand(CameraPage, command);
}

bool MeritLilin::SavePreset(std::int32_t preset) {
  return SendCommand(PresetPage, "set_preset=" + Text(preset)).has_value();
}

bool MeritLilin::GoToPreset(std::int32_t preset) {
  return SendCommand(PresetPage, "goto_preset=" + Text(preset)).has_value();
}

void MeritLilin::ContinuousMove(float pan, float tilt) {
  const bool isStop = pan == 0 && tilt == 0;
  SendContinuous(
      isStop ? std::string(StopMoveCommand) : "rpan=" + TurnSpeedText(pan) + "&rtilt=" + TurnSpeedText(tilt),
      isStop, LastMove_);
}

void MeritLilin::ContinuousZoom(float amount) {
  const bool isStop = amount == 0;
  SendContinuous(isStop ? std::string(StopZoomCommand) : "rzoom=" + ZoomSpeedText(amount), isStop, LastZoom_);
}

void MeritLilin::SendContinuous(const std::string& parameters, bool isStop, LastMotion<std::string>& last) {
  const auto path = PagePath(ControlPage, parameters);
  if (!last.Replace(parameters, isStop)) return;
  Request(path);
  PositionAge_.Expire();
}

void MeritLilin::QueryPosition() {
  const auto reply = SendCommand(ControlPage, "cmd=getallposdegree");
  if (!reply) return;
  auto position = Current_;
  for (const auto& [name, value] : Split2D(*reply, "\n", "=")) {
    if (name == "panposdegree") position.Pan = ToSingle(Val(value) - Ahead);
    if (name == "tiltposdegree") position.Tilt = ToSingle(-Val(value));
    if (name == "zoomposdegree") position.Zoom = ToSingle((Val(value) - WidestZoom) / ZoomFactors);
  }
  Current_ = position;
}

std::string MeritLilin::PagePath(std::string_view page, std::string_view parameters) const {
  std::string path = "/" + std::string(page) + "?";
  if (const auto port = PortOption<std::int16_t>.In(Options_); port != 0)
    path += "camid=" + Text(std::int32_t{port}) + "&";
  return path.append(parameters);
}

std::optional<std::string> MeritLilin::SendCommand(std::string_view page, std::string_view parameters) {
  return Request(PagePath(page, parameters));
}

}  // namespace ptzd
