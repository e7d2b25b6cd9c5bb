// Axis cameras: VAPIX PTZ requests over HTTP GET. The parameter list is rows of
// "root.PTZ.Support.S1.AbsolutePan=true" ended by a line feed; positions come as rows of "pan=12.5". A
// command is accepted by any reply.

#include "drivers/Axis.h"

#include <algorithm>
#include <array>

#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"
#include "drivers/kit/DriverErrors.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view ConfigPath = "/axis-cgi/com/ptzconfig.cgi?";
constexpr std::string_view ParameterPath = "/axis-cgi/view/param.cgi?action=list&group=";
constexpr std::string_view ChannelParameter = "camera=";

// A server preset's name is the host product's and the preset's number.
constexpr std::string_view SavePresetCommand = "setserverpresetname=Quor-vane%20Preset%20";
constexpr std::string_view GotoPresetCommand = "gotoserverpresetname=Quor-vane%20Preset%20";
constexpr std::string_view FirstDevicePresetCommand = "gotodevicepresetno=1";
constexpr std::string_view StopMoveCommand = "continuouspantiltmove=0,0";
constexpr std::string_view StopZoomCommand = "continuouszoommove=0";

constexpr std::int32_t PresetsOfRelativeHeads = 63;
constexpr std::int32_t MaxAngle = 180;  // degrees, either way, of pan and tilt
constexpr float DefaultZoomStep = 400;  // camera zoom units, where the field angles are not known

enum Absolute : unsigned { AbsolutePan = 1, AbsoluteTilt = 2, AbsoluteZoom = 4, AbsoluteAll = 7 };

struct SupportRow {
  std::string_view Name;
  Capabilities Flags;
  unsigned AbsoluteAxis = 0;
};

constexpr std::array SupportTable = {
    SupportRow{"AbsolutePan", CapabilityPan, AbsolutePan},
    SupportRow{"RelativePan", CapabilityPan},
    SupportRow{"AbsoluteTilt", CapabilityTilt, AbsoluteTilt},
    SupportRow{"RelativeTilt", CapabilityTilt},
    SupportRow{"AbsoluteZoom", CapabilityFullZoom, AbsoluteZoom},
    SupportRow{"RelativeZoom", CapabilityFullZoom},
    SupportRow{"RelativeFocus", CapabilityFocus},
    SupportRow{"AutoFocus", CapabilityAutoFocus2},
    SupportRow{"RelativeIris", CapabilityIris},
    SupportRow{"AutoIris", CapabilityAutoIris},
    SupportRow{"ContinuousPan", CapabilityContinuousMove},
    SupportRow{"ContinuousTilt", CapabilityContinuousMove},
    SupportRow{"ContinuousZoom", CapabilityContinuousZoom},
};

/// The camera's speed is twice the interface's, as a whole number.
std::string SpeedText(float speed) { return Text(ToSingle(Int(ToSingle(speed * 2.0)))); }

constexpr CommandRow<Iris> IrisCommands[] = {{IrisOpen, "autoiris=off&riris=1000"},
                                             {IrisClose, "autoiris=off&riris=-1000"},
                                             {IrisAuto, "autoiris=on"}};
constexpr CommandRow<Focus> FocusCommands[] = {{FocusNear, "autofocus=off&rfocus=-1000"},
                                               {FocusFar, "autofocus=off&rfocus=1000"},
                                               {FocusAuto, "autofocus=on"}};

/// Camera zoom units of zoom 1; 0: found from the field angles.
constexpr TypedOption<float> ZoomStepOption{{.Name = "ZoomStep",
                                             .Description = "Zoom step value",
                                             .OType = OptionInteger,
                                             .Default = 0,
                                             .Greatest = 10000}};
constexpr const DriverOption* Options[] = {&AddressOption, &PortOption<std::int32_t>, &ResetOption,
                                           &ZoomStepOption};

constexpr Evidence Signs[] = {
    {.Request = "/axis-cgi/view/param.cgi?action=list&group=root.PTZ.Support.S1",
     .Pattern = "^root.PTZ.Support.S1.*="},
    {Evidence::Places::Headers, "", "realm=\"AXIS_????????????", Evidence::Strengths::Suggests},
};
constexpr std::string_view MakeNames[] = {"Axis"};

}  // namespace

const DriverData Axis::Data = {
    .Class = "QVPTZ.Axis",
    .Capabilities = CapabilityMultiport | CapabilityExtendedOptions,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::SucceedsIfConnected,
    .Iris = MemberRule::OutcomeIfConnected,
    .Focus = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::OutcomeIfConnected,
    .PresetSave = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeMoveTo | AsksBeforeZoom |
                        AsksBeforeZoomTo | AsksBeforeAnswer,
    .PanRange = ValueRange{-MaxAngle, MaxAngle, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{-MaxAngle, MaxAngle, "degrees", Beyond::Limited},
    .ZoomRange = ValueRange{.Least = 0, .Unit = "zoom steps"},
    .PanSpeed = ValueRange{-50, 50, "fiftieths of the fastest"},
    .TiltSpeed = ValueRange{-50, 50, "fiftieths of the fastest"},
    .ZoomSpeed = ValueRange{-10, 10, "squared % of the fastest"},
    .MovesToConnect = ConnectMovement::OnSomeModels,  // to the reference position of a relative head
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

/// What a camera's parameter list says of its head.
struct Axis::Head {
  ptzd::Capabilities Flags{};
  unsigned AbsoluteAxes = 0;
  std::int32_t MaxZoom = 0;
  std::int32_t MinFieldAngle = 0, MaxFieldAngle = 0;

  explicit Head(std::string_view parameterList) {
    for (const auto& [key, value] : Split2D(parameterList, "\n", "=")) {
      const auto name = key.substr(key.rfind('.') + 1);
      // Nothing is trimmed: a list with other line ends than the camera's own describes no head.
      if (value == "true") {
        for (const auto& row : SupportTable) {
          if (row.Name != name) continue;
          Flags |= row.Flags;
          AbsoluteAxes |= row.AbsoluteAxis;
        }
      }
      if (name == "MaxZoom") MaxZoom = ToInt32(NumberFromText(value));
      if (name == "MinFieldAngle") MinFieldAngle = ToInt32(NumberFromText(value));
      if (name == "MaxFieldAngle") MaxFieldAngle = ToInt32(NumberFromText(value));
    }
  }

  /// The zoom range over the magnification that the field angles give.
  float ZoomStep() const {
    if (MaxZoom < 1 || MinFieldAngle < 1 || MaxFieldAngle < 1) return DefaultZoomStep;
    const double magnification = static_cast<double>(MaxFieldAngle) / MinFieldAngle;
    return ToSingle(ToSingle(MaxZoom / magnification) / 1.1);
  }
};

Axis::Axis(const Platform& platform)
    : WithZoom(Data, platform), ContinuousDriver(Data), DescribedOptions(Data) {}

bool Axis::Open() {
  const auto port = PortOption<std::int32_t>.In(Options_);
  const auto camera = Text(port == 0 ? 1 : port);
  const auto reply =
      Request(std::string(ParameterPath) + "root.PTZ.Limit.L" + camera + ",root.PTZ.Support.S" + camera);
  if (!reply) Raise(PTZErrorConnectionFailed, "Unable to connect to the device");

  SetUp(Head(*reply));
  if (ResetOption.In(Options_)) GoTo({});
  return true;
}

void Axis::SetUp(const Head& head) {
  Found_ = head.Flags;
  RelativeMode_ = head.AbsoluteAxes != AbsoluteAll;
  if (RelativeMode_) Found_ |= CapabilityRelativeControl | CapabilityPreset;
  if ((Found_ & (CapabilityPan | CapabilityTilt | CapabilityZoom)) == 0)
    Raise(PTZErrorPTZIncapable, "This device does not support PTZ.");

  ZoomStep_ = ZoomStepOption.In(Options_);
  if (ZoomStep_ == 0) ZoomStep_ = head.ZoomStep();

  if (RelativeMode_) {
    Current_ = {};
    SendCommand(FirstDevicePresetCommand);  // becomes the reference position
  } else {
    QueryPosition();
    PositionAge_.Set(TickCount());  // one that is stale is asked for again
  }
}

bool Axis::GoTo(HeadPosition target) {
  Refresh();
  auto pan = ToInt32(target.Pan);
  if (pan < -MaxAngle)
    pan += 360;
  else if (pan > MaxAngle)
    pan -= 360;
  const auto tilt = std::clamp(ToInt32(target.Tilt), -MaxAngle, MaxAngle);
  target = {0.0 + pan, 0.0 + tilt, ToSingle(std::max(target.Zoom, 0.0))};

  const auto command = MoveCommand(target);
  if (!command.empty() && !SendCommand(command)) return false;
  Current_ = target;
  PositionAge_.Set(TickCount());
  return true;
}

/// Only what changes is sent; empty where nothing does.
std::string Axis::MoveCommand(const HeadPosition& target) const {
  const auto& [pan, tilt, zoom] = target;
  // A relative head is told the way to go. Its zoom gets the 1 of the widest on top all the same, on purpose.
  const auto [panFrom, tiltFrom, zoomFrom] = RelativeMode_ ? Current_ : HeadPosition{};
  const std::string prefix = RelativeMode_ ? "r" : "";
  std::string command;
  if (pan != Current_.Pan) AppendParameter(command, prefix + "pan=" + Text(ToInt32(pan - panFrom)));
  if (tilt != Current_.Tilt) AppendParameter(command, prefix + "tilt=" + Text(ToInt32(tilt - tiltFrom)));
  if (zoom != Current_.Zoom)
    AppendParameter(
        command, prefix + "zoom=" + Text(ToSingle(Int(ToSingle(ToSingle(zoom - zoomFrom) * ZoomStep_)) + 1)));
  return command;
}

bool Axis::SetIris(ptzd::Iris level) {
  const auto command = CommandFor(level, IrisCommands);
  return !command.empty() && SendCommand(command);
}

bool Axis::SetFocus(ptzd::Focus level) {
  const auto command = CommandFor(level, FocusCommands);
  return !command.empty() && SendCommand(command);
}

std::int32_t Axis::PresetCount() { return RelativeMode_ ? PresetsOfRelativeHeads : 0; }

bool Axis::SavePreset(std::int32_t preset) {
  return RelativeMode_ && SendCommand(std::string(SavePresetCommand) + Text(preset), ConfigPath);
}

bool Axis::GoToPreset(std::int32_t preset) {
  return RelativeMode_ && SendCommand(std::string(GotoPresetCommand) + Text(preset));
}

void Axis::ContinuousMove(float pan, float tilt) {
  const auto command = "continuouspantiltmove=" + SpeedText(pan) + "," + SpeedText(tilt);
  SendContinuous(command, command == StopMoveCommand, LastMove_);
}

void Axis::ContinuousZoom(float amount) {
  const float speed = ToSingle(static_cast<double>(amount) * amount);
  const auto command = "continuouszoommove=" + Text(amount < 0 ? -speed : speed);
  SendContinuous(command, command == StopZoomCommand, LastZoom_);
}

void Axis::SendContinuous(const std::string& command, bool isStop, LastMotion<std::string>& last) {
  if (!last.Replace(command, isStop)) return;
  SendCommand(command);
  PositionAge_.Expire();
}

void Axis::QueryPosition() {
  if (RelativeMode_) return;
  const auto reply = SendCommand("query=position");
  if (!reply) return;
  auto position = Current_;
  for (const auto& [name, value] : Split2D(*reply, "\n", "=")) {
    if (name == "pan") position.Pan = ToInt32(Val(value));
    if (name == "tilt") position.Tilt = ToInt32(Val(value));
    // Without a successful `Connect` there is no zoom step yet.
    if (name == "zoom" && ZoomStep_ != 0)
      position.Zoom = NearestQuarter(ToSingle((Val(value) - 1) / ZoomStep_));
  }
  Current_ = position;
}

/// A head that tells its position knows better.
void Axis::TakePlace(float pan, float tilt) {
  if (RelativeMode_)
    Current_ = {0.0 + ToInt32(pan), 0.0 + ToInt32(tilt), Current_.Zoom};
  else
    PositionAge_.Expire();
}

std::optional<std::string> Axis::SendCommand(std::string_view command, std::string_view path) {
  return Request(CommandPath(path, ChannelParameter, command));
}

}  // namespace ptzd
