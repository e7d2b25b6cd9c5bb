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

constexpr std::string_view ControlPath = "/axis-cgi/com/ptz.cgi?";
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

}  // namespace

const DriverData Axis::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FalseIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::TrueIfConnected,
    .Iris = MemberRule::OutcomeIfConnected,
    .Focus = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::OutcomeIfConnected,
    .PresetSave = MemberRule::OutcomeIfConnected,
    .ReadsPosition = PositionReading::Always,
    .SharedOptions = SharesAddress | SharesPort | SharesReset,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
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

Axis::Axis(const Platform& platform) : HTTPDriver(platform) {}

Capabilities Axis::Capabilities() { return Capabilities_ | CapabilityMultiport | CapabilityExtendedOptions; }

bool Axis::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data);

  const auto port = Options_.Long("Port", 0);
  const auto camera = Text(port == 0 ? 1 : port);
  const auto reply =
      Request(std::string(ParameterPath) + "root.PTZ.Limit.L" + camera + ",root.PTZ.Support.S" + camera);
  if (!reply) Raise(PTZErrorConnectionFailed, "Unable to connect to the device");

  SetUp(Head(*reply));
  if (Options_.Boolean("Reset", false)) AbsoluteMove(0, 0, 0);
  Connected_ = true;
  return true;
}

void Axis::SetUp(const Head& head) {
  Capabilities_ = head.Flags;
  RelativeMode_ = head.AbsoluteAxes != AbsoluteAll;
  if (RelativeMode_) Capabilities_ |= CapabilityRelativeControl | CapabilityPreset;
  if ((Capabilities_ & (CapabilityPan | CapabilityTilt | CapabilityZoom)) == 0)
    Raise(PTZErrorPTZIncapable, "This device does not support PTZ.");

  ZoomStep_ = Options_.Single("ZoomStep", 0);
  if (ZoomStep_ == 0) ZoomStep_ = head.ZoomStep();

  if (RelativeMode_) {
    CurrentPan_ = CurrentTilt_ = 0;
    CurrentZoom_ = 0;
    SendCommand(FirstDevicePresetCommand);  // becomes the reference position
  } else {
    QueryPosition();
  }
}

std::optional<std::string> Axis::SendCommand(std::string_view command, bool config) {
  return Request(CommandPath(config ? ConfigPath : ControlPath, ChannelParameter, command));
}

bool Axis::DeviceMove(Directions direction, float angle) {
  if (!Connected_) return false;
  RefreshPosition();
  const auto step = StepOf(direction, angle);
  const double pan = CurrentPan_ + step.Pan, tilt = CurrentTilt_ + step.Tilt;
  return AbsoluteMove(pan, tilt, CurrentZoom_);
}

bool Axis::DeviceMoveBoth(float panAngle, float tiltAngle) {
  RefreshPosition();
  return AbsoluteMove(static_cast<double>(CurrentPan_) + panAngle,
                      static_cast<double>(CurrentTilt_) + tiltAngle, CurrentZoom_);
}

bool Axis::MoveTo(float pan, float tilt) {
  if (!Connected_) return false;
  RefreshPosition();
  MoveTo(pan, tilt, CurrentZoom_);
  return false;
}

void Axis::MoveTo(float pan, float tilt, float zoom) {
  if (Connected_) AbsoluteMove(pan, tilt, zoom);
}

bool Axis::Zoom(Zooms zoomLevel) {
  if (Connected_) Zoom(zoomLevel, ZoomStepAmount);
  return Connected_;
}

void Axis::Zoom(Zooms direction, float amount) {
  if (!Connected_) return;
  RefreshPosition();
  if (IsZoomStep(direction)) ZoomTo(CurrentZoom_ + ZoomStepOf(direction, amount));
}

void Axis::ZoomTo(float zoom) {
  if (!Connected_) return;
  RefreshPosition();
  AbsoluteMove(CurrentPan_, CurrentTilt_, zoom);
}

float Axis::Pan() {
  RefreshPosition();
  return static_cast<float>(CurrentPan_);
}

float Axis::Tilt() {
  RefreshPosition();
  return static_cast<float>(CurrentTilt_);
}

float Axis::ZoomLevel() {
  RefreshPosition();
  return CurrentZoom_;
}

void Axis::SetPanTilt(float pan, float tilt) {
  if (!Connected_) return;
  if (RelativeMode_) {
    const auto roundedPan = ToInt32(pan), roundedTilt = ToInt32(tilt);
    CurrentPan_ = roundedPan;
    CurrentTilt_ = roundedTilt;
  } else {
    PositionAge_.Expire();  // the camera knows better
  }
}

bool Axis::Iris(ptzd::Iris irisLevel) {
  const auto command = CommandFor(irisLevel, IrisCommands);
  return Connected_ && !command.empty() && SendCommand(command);
}

bool Axis::Focus(ptzd::Focus focusLevel) {
  const auto command = CommandFor(focusLevel, FocusCommands);
  return Connected_ && !command.empty() && SendCommand(command);
}

std::int32_t Axis::PresetCount() { return RelativeMode_ ? PresetsOfRelativeHeads : 0; }

bool Axis::PresetSave(std::int32_t preset) {
  if (!Connected_ || !RelativeMode_) return false;
  return SendCommand(std::string(SavePresetCommand) + Text(preset), true).has_value();
}

bool Axis::PresetGoto(std::int32_t preset) {
  if (!Connected_ || !RelativeMode_) return false;
  return SendCommand(std::string(GotoPresetCommand) + Text(preset)).has_value();
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

Variant Axis::DeviceDisconnect() {
  Connected_ = false;
  return true;
}

bool Axis::AbsoluteMove(double targetPan, double targetTilt, float zoom) {
  RefreshPosition();
  auto pan = ToInt32(targetPan), tilt = ToInt32(targetTilt);
  if (pan < -MaxAngle)
    pan += 360;
  else if (pan > MaxAngle)
    pan -= 360;
  tilt = std::clamp(tilt, -MaxAngle, MaxAngle);
  if (zoom <= 0) zoom = 0;  // nor a negative zero

  const auto command = MoveCommand(pan, tilt, zoom);
  if (!command.empty() && !SendCommand(command)) return false;
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
  PositionAge_.Set(TickCount());
  return true;
}

/// Only what changes is sent; empty where nothing does.
std::string Axis::MoveCommand(std::int32_t pan, std::int32_t tilt, float zoom) const {
  // Camera zoom 1 is the widest. A relative zoom gets the same 1 on top, on purpose.
  const auto zoomUnits = [this](float amount) {
    return Text(ToSingle(Int(ToSingle(amount * ZoomStep_)) + 1));
  };
  std::string command;
  if (RelativeMode_) {
    if (pan != CurrentPan_)
      AppendParameter(command, "rpan=" + Text(ToInt32(static_cast<double>(pan) - CurrentPan_)));
    if (tilt != CurrentTilt_)
      AppendParameter(command, "rtilt=" + Text(ToInt32(static_cast<double>(tilt) - CurrentTilt_)));
    if (zoom != CurrentZoom_) AppendParameter(command, "rzoom=" + zoomUnits(zoom - CurrentZoom_));
  } else {
    if (pan != CurrentPan_) AppendParameter(command, "pan=" + Text(pan));
    if (tilt != CurrentTilt_) AppendParameter(command, "tilt=" + Text(tilt));
    if (zoom != CurrentZoom_) AppendParameter(command, "zoom=" + zoomUnits(zoom));
  }
  return command;
}

void Axis::RefreshPosition() {
  if (!PositionAge_.IsDue(TickCount())) return;
  PositionAge_.Asked();
  QueryPosition();
}

void Axis::QueryPosition() {
  if (RelativeMode_) return;
  const auto reply = SendCommand("query=position");
  PositionAge_.Set(TickCount());  // after the wait: a camera that is away is not waited for again at once
  if (!reply) return;
  auto pan = CurrentPan_, tilt = CurrentTilt_;
  auto zoom = CurrentZoom_;
  for (const auto& [name, value] : Split2D(*reply, "\n", "=")) {
    if (name == "pan") pan = ToInt32(Val(value));
    if (name == "tilt") tilt = ToInt32(Val(value));
    // Without a successful `Connect` there is no zoom step yet.
    if (name == "zoom" && ZoomStep_ != 0) {
      const auto units = ToSingle((Val(value) - 1) / ZoomStep_);
      zoom = NearestQuarter(units);
    }
  }
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
}

std::span<const OptionRow> Axis::OptionTable() const {
  static const OptionRow table[] = {{"ZoomStep", "Zoom step value", OptionInteger, {0, 10000}, 0}};
  return table;
}

}  // namespace ptzd
