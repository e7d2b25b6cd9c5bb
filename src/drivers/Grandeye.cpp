// Grandeye cameras: HTTP GET. Positions come as rows of "vcamapan0=30", in any case of letters; a command is
// accepted by any reply. The camera's pan runs to the left, its tilt from 0 to 90 with the horizon at 45, and
// a relative zoom widens the picture. Commands count the views from 1, queries from 0.

#include "drivers/Grandeye.h"

#include <algorithm>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "platform/LetterCase.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view ControlPath = "/com/ptz.cgi?";
constexpr std::string_view ChannelParameter = "camera=";
constexpr const char* QueryPath = "/getparam.cgi?";

// What a query names and its reply tells, with the view's number behind.
constexpr const char* PanName = "vcamapan";
constexpr const char* TiltName = "vcamatilt";
constexpr const char* ZoomName = "vcamazoom";

// Inverted on purpose: the camera's zoom is the width of its picture.
constexpr std::string_view ZoomInCommand = "rzoom=-250", ZoomOutCommand = "rzoom=250";

constexpr std::int32_t HalfTurn = 180;  // degrees
constexpr std::int32_t MaxTilt = 45;    // degrees, either way
constexpr std::int32_t LevelTilt = 45;  // the camera's tilt at the horizon
constexpr double ZoomStep = 3446.5;     // camera zoom units; its zoom begins at 1

}  // namespace

const DriverData Grandeye::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FalseIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::TrueIfConnected,
    .DisconnectAnswersTrue = false,
    .ReadsPosition = PositionReading::Always,
    .ConnectsUnheard = true,
    .SharedOptions = SharesAddress | SharesPort,
};

/// Takes what the reply tells of a view.
void Grandeye::Position::Read(std::string_view reply, const std::string& view) {
  for (const auto& [key, value] : Split2D(reply, "\n", "=")) {
    const auto name = LowerCase(key);
    if (name == PanName + view) Pan = ToSingle(0 - Val(value));
    if (name == TiltName + view) Tilt = ToSingle(Val(value) - LevelTilt);
    if (name == ZoomName + view) {
      const auto steps = ToSingle((Val(value) - 1) / ZoomStep);
      Zoom = NearestQuarter(steps);
    }
  }
}

Grandeye::Grandeye(const Platform& platform) : HTTPDriver(platform) {}

Capabilities Grandeye::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityMultiport;
}

bool Grandeye::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  if (Options_.Text("Address").empty()) return false;
  QueriedView();  // must be a number; from here on nothing raises
  Connected_ = true;
  try {
    QueryPosition();
  } catch (const Error& error) {
    LogPositionNotRead(error);
  }
  return true;
}

Variant Grandeye::Disconnect() {
  Connected_ = false;
  return {};
}

bool Grandeye::SendCommand(std::string_view command) {
  return Request(CommandPath(ControlPath, ChannelParameter, command)).has_value();
}

bool Grandeye::Move(Directions direction, float angle) {
  if (!Connected_) return false;
  RefreshPosition();
  const auto step = StepOf(direction, angle);
  return AbsoluteMove(Position_.Pan + step.Pan, Position_.Tilt + step.Tilt);
}

bool Grandeye::MoveBoth(float panAngle, float tiltAngle) {
  if (!Connected_) return false;
  RefreshPosition();
  return AbsoluteMove(static_cast<double>(Position_.Pan) + panAngle,
                      static_cast<double>(Position_.Tilt) + tiltAngle);
}

bool Grandeye::MoveTo(float pan, float tilt) {
  if (Connected_) AbsoluteMove(pan, tilt);
  return false;
}

/// Goes to the nearest whole degrees; only what changes is sent.
bool Grandeye::AbsoluteMove(double targetPan, double targetTilt) {
  RefreshPosition();
  const auto pan = ToInt32(ToSingle(targetPan));
  const auto tilt = std::clamp(ToInt32(ToSingle(targetTilt)), -MaxTilt, MaxTilt);

  std::string command;
  if (pan != static_cast<double>(Position_.Pan))
    AppendParameter(command, "pan=" + Text(ToInt32(-static_cast<double>(pan))));
  if (tilt != static_cast<double>(Position_.Tilt)) AppendParameter(command, "tilt=" + Text(tilt + LevelTilt));
  if (!command.empty() && !SendCommand(command)) return false;

  // The camera was sent the pan as it came; what is kept of it goes around once.
  const auto turn = pan < -HalfTurn ? 2 * HalfTurn : pan > HalfTurn ? -2 * HalfTurn : 0;
  Position_ = {static_cast<float>(pan + turn), static_cast<float>(tilt), std::max(Position_.Zoom, 0.0F)};
  PositionAge_.Set(TickCount());
  return true;
}

bool Grandeye::Zoom(Zooms zoomLevel) {
  if (Connected_ && IsZoomStep(zoomLevel)) {
    SendCommand(zoomLevel == ZoomIn ? ZoomInCommand : ZoomOutCommand);
    PositionAge_.Expire();
  }
  return Connected_;
}

float Grandeye::Pan() {
  RefreshPosition();
  return Position_.Pan;
}

float Grandeye::Tilt() {
  RefreshPosition();
  return Position_.Tilt;
}

void Grandeye::SetPanTilt(float, float) {
  if (Connected_) PositionAge_.Expire();  // the camera knows better
}

void Grandeye::RefreshPosition() {
  if (!PositionAge_.IsDue(TickCount())) return;
  PositionAge_.Asked();
  QueryPosition();
}

/// The view's number as queries count.
std::string Grandeye::QueriedView() const {
  const auto port = Options_.Long("Port", 0);
  return Text(port == 0 ? 0 : ToInt32(port - 1.0));
}

void Grandeye::QueryPosition() {
  const auto view = QueriedView();
  const auto reply = Request(QueryPath + (PanName + view) + "&" + TiltName + view + "&" + ZoomName + view);
  PositionAge_.Set(TickCount());  // after the wait: a camera that is away is not waited for again at once
  if (!reply) return;
  auto position = Position_;
  position.Read(*reply, view);
  Position_ = position;
}

}  // namespace ptzd
