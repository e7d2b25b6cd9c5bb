// Secubest units: messages over TCP, never answered. A message is "STRT", a NUL, a type of three digits, a
// NUL, parameters, "_END" and a NUL. All commands are of type 7 with the text "PTZ", a command code and a
// 16-bit speed. Pan and tilt speeds travel low byte first, the zoom speed of continuous motion high byte
// first; units expect it so.

#include "drivers/Secubest.h"

#include <algorithm>
#include <cmath>
#include <string_view>

#include "common/DirectionCalculator.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/TimedMove.h"
#include "transport/HTTP.h"

namespace ptzd {

namespace {

constexpr std::string_view MessageHead(
    "STRT\0"
    "007\0"
    "PTZ\0",
    13);
constexpr std::string_view MessageTail("_END\0", 5);

constexpr std::uint16_t DefaultPort = 7777;
constexpr std::int32_t ConnectTimeout = 21000;  // milliseconds
constexpr std::int32_t SendTimeout = 5000;      // milliseconds
constexpr std::int32_t DefaultMoveInterval = 200, DefaultMoveSpeed = 200;
constexpr double DegreesPerInterval = 5;
constexpr double SpeedPerUnit = 25;
constexpr std::uint16_t TimedMoveSpeed = 200;  // whatever the option MoveSpeed says

constexpr std::uint8_t ZoomInCode = 24, ZoomOutCode = 25;
constexpr std::uint8_t StopMoveCode = 41, StopZoomCode = 45;

struct DirectionRow {
  std::int32_t Direction;
  std::uint8_t Code;
};
constexpr DirectionRow DirectionTable[] = {
    {0, 0},
    {DirectionUp, 20},
    {DirectionDown, 21},
    {DirectionLeft, 22},
    {DirectionRight, 23},
    {DirectionUpRight, 33},
    {DirectionDownRight, 34},
    {DirectionDownLeft, 35},
    {DirectionUpLeft, 36},
};

std::uint8_t DirectionCode(float pan, float tilt, float& amount) {
  const auto direction = CalculateDirection(pan, tilt, true, amount);
  return std::ranges::find(DirectionTable, direction, &DirectionRow::Direction)->Code;
}

std::uint8_t ZoomCode(float amount) { return amount > 0 ? ZoomInCode : ZoomOutCode; }

constexpr std::uint16_t SwapBytes(std::uint16_t value) {
  return static_cast<std::uint16_t>(value << 8 | value >> 8);
}

}  // namespace

const DriverData Secubest::Data = {
    .Move = MemberRule::TrueIfConnected,
    .MoveTo = MemberRule::TrueIfConnected,
    .MoveBoth = MemberRule::TrueIfConnected,
    .Zoom = MemberRule::TrueIfConnected,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
};

Secubest::Secubest(const Platform& platform) : Platform_(platform) {}

Capabilities Secubest::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityContinuousMove |
         CapabilityExtendedOptions | CapabilitySimpleControl | CapabilityContinuousZoom;
}

bool Secubest::Connect(std::span<const std::uint8_t> options) {
  DeviceDisconnect();
  Options_ = {};
  Options_.Contents(options);
  MoveInterval_ = Options_.Long("MoveInterval", DefaultMoveInterval);
  Options_.Long("MoveSpeed", DefaultMoveSpeed);  // no command uses it, but it must be a number
  const auto address = RequireAddress(Options_, Data);

  const auto url = ParseUrl("secubest://" + address, *Platform_.internet);
  auto socket = Platform_.sockets->Create();
  if (const auto error = socket->Open(); error != 0)
    Raise(PTZErrorConnectionFailed, "Failed to open a TCP port: " + Text(error));
  const auto port = url.Port == 0 ? DefaultPort : url.Port;
  if (const auto error = socket->Connect(url.HostName, port, ConnectTimeout); error != 0)
    Raise(PTZErrorConnectionFailed, "Unable to connect to the server: " + Text(error) + ".");

  Socket_ = std::move(socket);
  LastMove_ = {}, LastZoom_ = {};  // the unit on this connection has not been told anything
  Connected_ = true;
  return true;
}

Variant Secubest::DeviceDisconnect() {
  Socket_.reset();
  Connected_ = false;
  return true;
}

bool Secubest::DeviceMove(Directions direction, float angle) {
  const auto step = StepOf(direction, angle);
  const double pan = CurrentPan_ + step.Pan, tilt = CurrentTilt_ + step.Tilt;
  return TimedMove(pan, tilt, CurrentZoom_);
}

bool Secubest::DeviceMoveBoth(float panAngle, float tiltAngle) {
  return TimedMove(static_cast<double>(CurrentPan_) + panAngle, static_cast<double>(CurrentTilt_) + tiltAngle,
                   CurrentZoom_);
}

bool Secubest::MoveTo(float pan, float tilt) { return TimedMove(pan, tilt, CurrentZoom_); }

void Secubest::MoveTo(float pan, float tilt, float zoom) { TimedMove(pan, tilt, zoom); }

bool Secubest::Zoom(Zooms zoomLevel) {
  Zoom(zoomLevel, ZoomStepAmount);
  return Connected_;
}

void Secubest::Zoom(Zooms direction, float amount) {
  if (IsZoomStep(direction))
    TimedMove(CurrentPan_, CurrentTilt_, static_cast<double>(CurrentZoom_) + ZoomStepOf(direction, amount));
}

void Secubest::ZoomTo(float zoom) { TimedMove(CurrentPan_, CurrentTilt_, zoom); }

/// Pan and tilt run in one of the eight directions, and the zoom beside them, for the time that the larger
/// amount needs.
bool Secubest::TimedMove(double targetPan, double targetTilt, double targetZoom) {
  if (!Connected_) return false;
  const float pan = ToSingle(targetPan), tilt = ToSingle(targetTilt), zoom = ToSingle(targetZoom);
  const float zoomAway = ToSingle(static_cast<double>(zoom) - CurrentZoom_);
  float amount = 0;
  const auto moveCode = DirectionCode(ToSingle(static_cast<double>(pan) - CurrentPan_),
                                      ToSingle(static_cast<double>(tilt) - CurrentTilt_), amount);
  if (moveCode != 0 || zoomAway != 0) {
    const auto wait = ToInt32(MoveInterval_ / DegreesPerInterval * std::max(amount, std::fabs(zoomAway)));
    const auto speed = SwapBytes(TimedMoveSpeed);
    DriveFor(
        *Platform_.clock, wait,
        [&] {
          if (moveCode != 0) Send(moveCode, speed);
          if (zoomAway != 0) Send(ZoomCode(zoomAway), speed);
        },
        [&] {
          if (moveCode != 0) Send(StopMoveCode, 0);
          if (zoomAway != 0) Send(StopZoomCode, 0);
        });
  }
  CurrentPan_ = pan;
  CurrentTilt_ = tilt;
  CurrentZoom_ = zoom;
  return true;
}

void Secubest::ContinuousMove(float pan, float tilt) {
  const bool moving = pan != 0 || tilt != 0;
  float amount = 0;
  Motion motion{.Code = StopMoveCode};
  if (moving) motion.Code = DirectionCode(pan, tilt, amount);
  motion.Speed = ToInt16(amount * SpeedPerUnit);
  if (!LastMove_.Replace(motion, !moving)) return;
  Platform_.debugOutput("JS: " + Text(pan) + "x" + Text(tilt) + ", " + Text(amount) + " Command: " +
                        Text(std::int32_t{motion.Code}) + ", " + Text(std::int32_t{motion.Speed}));
  Send(motion.Code, SwapBytes(static_cast<std::uint16_t>(motion.Speed)));
}

void Secubest::ContinuousZoom(float amount) {
  const bool moving = amount != 0;
  const Motion motion{.Code = moving ? ZoomCode(amount) : StopZoomCode, .Speed = ToInt16(std::fabs(amount))};
  if (!LastZoom_.Replace(motion, !moving)) return;
  Send(motion.Code, static_cast<std::uint16_t>(motion.Speed));
}

/// What cannot be sent is lost.
void Secubest::Send(std::uint8_t code, std::uint16_t speed) {
  if (!Socket_) return;
  Bytes message(MessageHead.begin(), MessageHead.end());
  message.insert(message.end(),
                 {code, static_cast<std::uint8_t>(speed >> 8), static_cast<std::uint8_t>(speed)});
  message.insert(message.end(), MessageTail.begin(), MessageTail.end());
  Socket_->Send(message, SendTimeout);
}

std::span<const OptionRow> Secubest::OptionTable() const {
  static const OptionRow table[] = {
      {"MoveInterval", "Move interval", OptionInteger, {0, 10000}, DefaultMoveInterval},
      {"MoveSpeed", "Move speed", OptionInteger, {0, 2000}, DefaultMoveSpeed},
  };
  return table;
}

}  // namespace ptzd
