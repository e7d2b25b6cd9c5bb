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
#include "drivers/kit/LineExchange.h"
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

bool IsNew(std::uint8_t code, std::int16_t speed, bool isStop, LastMotion<std::string>& last) {
  return last.Replace(Text(std::int32_t{code}) + "," + Text(std::int32_t{speed}), isStop);
}

constexpr TypedOption<std::int32_t> MoveIntervalOption{{.Name = "MoveInterval",
                                                        .Description = "Move interval",
                                                        .OType = OptionInteger,
                                                        .Default = 200,
                                                        .Greatest = 10000}};
constexpr TypedOption<std::int32_t> MoveSpeedOption{{.Name = "MoveSpeed",
                                                     .Description = "Move speed",
                                                     .OType = OptionInteger,
                                                     .Default = 200,
                                                     .Greatest = 2000}};
constexpr const DriverOption* Options[] = {&AddressOption, &MoveIntervalOption, &MoveSpeedOption};

constexpr Evidence Signs[] = {
    {Evidence::Places::Sockets, "7777", "", Evidence::Strengths::Allows},  // never answers
};
constexpr std::string_view MakeNames[] = {"Secubest"};

}  // namespace

const DriverData Secubest::Data = {
    .Class = "QVPTZ.Secubest",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityContinuousMove |
                    CapabilityExtendedOptions | CapabilitySimpleControl | CapabilityContinuousZoom,
    .Move = MemberRule::SucceedsIfConnected,
    .MoveTo = MemberRule::SucceedsIfConnected,
    .MoveBoth = MemberRule::SucceedsIfConnected,
    .Zoom = MemberRule::SucceedsIfConnected,
    .PanRange = ValueRange{},
    .TiltRange = ValueRange{},
    .ZoomRange = ValueRange{.Unit = "times that a degree takes"},
    .PanSpeed = ValueRange{-1310, 1310, "25 camera speeds", Beyond::Overflows},
    .TiltSpeed = ValueRange{-1310, 1310, "25 camera speeds", Beyond::Overflows},
    .ZoomSpeed = ValueRange{-32767, 32767, "camera speeds", Beyond::Overflows},
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Secubest::Secubest(const Platform& platform)
    : WithZoom(Data, platform), ContinuousDriver(Data), DescribedOptions(Data) {}

void Secubest::ReadOptions() {
  MoveInterval_ = MoveIntervalOption.In(Options_);
  MoveSpeedOption.In(Options_);  // no command uses it, but it must be a number
}

bool Secubest::Open() {
  const auto url = ParseUrl("secubest://" + AddressOption.In(Options_), *Platform_.Internet);
  const auto port = url.Port == 0 ? DefaultPort : url.Port;
  Unit_ = url.HostName + ":" + Text(std::int32_t{port});
  auto socket = Platform_.Sockets->Create();
  TellLine(Teller_, ExchangeLink::TCP, Unit_, {}, [&] {
    if (const auto error = socket->Open(); error != 0)
      Raise(PTZErrorConnectionFailed, "Failed to open a TCP port: " + Text(error));
    if (const auto error = socket->Connect(url.HostName, port, ConnectTimeout); error != 0)
      Raise(PTZErrorConnectionFailed, "Unable to connect to the server: " + Text(error) + ".");
    return 0;
  });
  Socket_ = std::move(socket);
  return true;
}

/// Pan and tilt run in one of the eight directions, and the zoom beside them, for the time that the larger
/// amount needs.
bool Secubest::GoTo(HeadPosition target) {
  target = {ToSingle(target.Pan), ToSingle(target.Tilt), ToSingle(target.Zoom)};
  const float zoomAway = ToSingle(target.Zoom - Current_.Zoom);
  float amount = 0;
  const auto moveCode =
      DirectionCode(ToSingle(target.Pan - Current_.Pan), ToSingle(target.Tilt - Current_.Tilt), amount);
  if (moveCode != 0 || zoomAway != 0) {
    const auto wait = ToInt32(MoveInterval_ / DegreesPerInterval * std::max(amount, std::fabs(zoomAway)));
    const auto speed = SwapBytes(TimedMoveSpeed);
    DriveFor(
        *Platform_.Clock, wait,
        [&] {
          if (moveCode != 0) SendCommand(moveCode, speed);
          if (zoomAway != 0) SendCommand(ZoomCode(zoomAway), speed);
        },
        [&] {
          if (moveCode != 0) SendCommand(StopMoveCode, 0);
          if (zoomAway != 0) SendCommand(StopZoomCode, 0);
        });
  }
  Current_ = target;
  return true;
}

void Secubest::ContinuousMove(float pan, float tilt) {
  const bool moving = pan != 0 || tilt != 0;
  float amount = 0;
  const auto code = moving ? DirectionCode(pan, tilt, amount) : StopMoveCode;
  const auto speed = ToInt16(amount * SpeedPerUnit);
  if (!IsNew(code, speed, !moving, LastMove_)) return;
  Platform_.DebugOutput("JS: " + Text(pan) + "x" + Text(tilt) + ", " + Text(amount) +
                        " Command: " + Text(std::int32_t{code}) + ", " + Text(std::int32_t{speed}));
  SendCommand(code, SwapBytes(static_cast<std::uint16_t>(speed)));
}

void Secubest::ContinuousZoom(float amount) {
  const bool moving = amount != 0;
  const auto code = moving ? ZoomCode(amount) : StopZoomCode;
  const auto speed = ToInt16(std::fabs(amount));
  if (IsNew(code, speed, !moving, LastZoom_)) SendCommand(code, static_cast<std::uint16_t>(speed));
}

/// What cannot be sent is lost.
void Secubest::SendCommand(std::uint8_t code, std::uint16_t speed) {
  if (!Socket_) return;
  Bytes message(MessageHead.begin(), MessageHead.end());
  message.insert(message.end(),
                 {code, static_cast<std::uint8_t>(speed >> 8), static_cast<std::uint8_t>(speed)});
  message.insert(message.end(), MessageTail.begin(), MessageTail.end());
  TellLine(Teller_, ExchangeLink::TCP, Unit_, message, [&] { return Socket_->Send(message, SendTimeout); });
}

}  // namespace ptzd
