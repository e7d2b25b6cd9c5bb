// Bosch domes and pan-tilt cameras: binary messages as hexadecimal digits in the query of rcp.xml, answered
// by an XML document with the message's bytes and, behind them, those that were asked for. Positions are
// 16-bit camera units: ten-thousandths of a radian, pan counted to the left from straight behind.

#include "drivers/Bosch.h"

#include <algorithm>
#include <charconv>
#include <cmath>

#include <ptzd/Logging.h>
#include "common/Angles.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
#include "platform/XmlDocument.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

constexpr std::string_view MessagePath =
    "/rcp.xml?command=0x09A5&type=P_OCTET&direction=WRITE&num=1&payload=0x";

constexpr std::int32_t WriteLead = 0x80, ReadLead = 0x81;
constexpr std::int32_t Group = 6;
constexpr std::int32_t MotionObject = 272, PanObject = 274, TiltObject = 275, ZoomObject = 276;
constexpr std::int32_t ReadOperation = 1, SetOperation = 2, MotionOperation = 133;

constexpr XmlQuery ResultQuery("rcp/result/str");
// Where "7A 1B" stands in the result, behind the six bytes of the message.
constexpr std::size_t ValueAt = 18, ValueLength = 5, ValueDigits = 4;

constexpr double RadiansPerDegree = 0.017453278435601127;  // the make's own; not quite pi / 180
constexpr double UnitsPerRadian = 10000;
constexpr double ZoomUnits = 45;  // of zoom level 1
constexpr double HalfTurn = 180;

constexpr float TopSpeed = 20;        // of `ContinuousMove`
constexpr float TopCameraSpeed = 15;  // one hexadecimal digit

std::string BuildCommand(std::int32_t lead, std::int32_t group, std::int32_t object, std::int32_t operation,
                         std::string_view data) {
  return (Hex2(lead) + Hex4(group) + Hex4(object) + Hex2(operation)).append(data);
}

/// Nothing where the text has no two bytes there: they are no value that the camera told.
std::optional<std::int32_t> ValueIn(std::string_view result) {
  const auto units = Utf16FromUtf8(result);
  std::string digits;
  for (auto at = ValueAt; at < std::min(units.size(), ValueAt + ValueLength); ++at)
    if (units[at] != u' ') digits += units[at] < 0x80 ? static_cast<char>(units[at]) : '?';
  std::uint32_t value = 0;
  const auto* end = digits.data() + digits.size();
  if (digits.size() != ValueDigits || std::from_chars(digits.data(), end, value, 16).ptr != end)
    return std::nullopt;
  return value;
}

std::int32_t UnitsOf(double degrees) { return ToInt32(degrees * RadiansPerDegree * UnitsPerRadian); }
double DegreesOf(std::int32_t units) { return units / UnitsPerRadian / RadiansPerDegree; }

/// Tenths, toward minus infinity.
float Tenths(double degrees) { return ToSingle(Int(degrees * 10) / 10); }

/// Above the top speed the digit wraps, on purpose.
char SpeedDigit(float speed) {
  return Hex(ToInt32(ToSingle(ToSingle(std::fabs(speed) / TopSpeed) * TopCameraSpeed))).back();
}

constexpr const DriverOption* Options[] = {&AddressOption};

constexpr Evidence Signs[] = {
    {.Request =
         "/rcp.xml?command=0x09A5&type=P_OCTET&direction=WRITE&num=1&payload=0x810006011201",  // reads the
                                                                                               // pan
     .Pattern = "<rcp>*<hex>0x09a5</hex>"},
};
constexpr std::string_view MakeNames[] = {"Bosch"};

}  // namespace

const DriverData Bosch::Data = {
    .Class = "QVPTZ.Bosch",
    .Capabilities =
        CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityFullZoom | CapabilityContinuousMove,
    // Moves are made, their results are not passed on.
    .Move = MemberRule::Fails,
    .MoveTo = MemberRule::Fails,
    .MoveBoth = MemberRule::Fails,
    .Zoom = MemberRule::Fails,
    .SendsEmptyZooms = true,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom | AsksBehindTarget,
    .MisreadsBelowHorizon = true,
    .PositionStep = 0.1,
    .PanRange = ValueRange{-HalfTurn, HalfTurn, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{},
    .ZoomRange = ValueRange{.Least = 0, .Unit = "45 camera units"},
    .PanSpeed = ValueRange{-TopSpeed, TopSpeed, "twentieths of the fastest"},
    .TiltSpeed = ValueRange{-TopSpeed, TopSpeed, "twentieths of the fastest"},
    .ConnectsUnheard = true,
    .NoAddress = DriverData::Failure{PTZErrorConnectionFailed, "No device address specified."},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Bosch::Bosch(const Platform& platform) : WithZoom(Data, platform, SendingStyle), ContinuousDriver(Data) {}

bool Bosch::Open() {
  ReadPosition();
  return true;
}

/// The position is read only after the target is known: a target taken from an old model, be it the pan of a
/// zoom, moves the camera back there. The model takes the target whatever becomes of the requests, on
/// purpose.
bool Bosch::GoTo(HeadPosition target) {
  target = {WithinHalfTurn(ToSingle(target.Pan)), ToSingle(target.Tilt),
            ToSingle(std::max(target.Zoom, 0.0))};
  const auto panValue = UnitsOf(HalfTurn - target.Pan), tiltValue = UnitsOf(target.Tilt);
  const auto zoomValue = ToInt32(target.Zoom * ZoomUnits);
  RefreshFor(AsksBehindTarget);
  if (target.Pan != Current_.Pan) Set(PanObject, panValue);
  if (target.Tilt != Current_.Tilt) Set(TiltObject, tiltValue);
  if (target.Zoom != Current_.Zoom) Set(ZoomObject, zoomValue);
  Current_ = target;
  return true;
}

/// Down whatever the direction, on purpose.
void Bosch::Device2Move(Directions, float angle) { DeviceMove(DirectionDown, angle); }

void Bosch::ContinuousMove(float pan, float tilt) {
  const auto part = [](float speed) { return std::string(speed > 0 ? "F" : "0") + SpeedDigit(speed); };
  const auto data = part(pan) + part(tilt) + "00";
  if (!LastMove_.Replace(data, false)) return;  // a repeated stop is not sent either, on purpose
  SendCommand(BuildCommand(WriteLead, Group, MotionObject, MotionOperation, data));
  PositionAge_.Expire();
}

/// The first value that cannot be read ends it; the others stay as they are.
void Bosch::QueryPosition() {
  const auto pan = Read(PanObject);
  if (!pan) return;
  Current_.Pan = Tenths(HalfTurn - DegreesOf(*pan));
  const auto tilt = Read(TiltObject);
  if (!tilt) return;
  Current_.Tilt = Tenths(DegreesOf(*tilt));  // a negative one is not told from a large one, on purpose
  if (const auto zoom = Read(ZoomObject)) Current_.Zoom = NearestQuarter(*zoom / ZoomUnits);
}

void Bosch::Set(std::int32_t object, std::int32_t value) {
  SendCommand(BuildCommand(WriteLead, Group, object, SetOperation, Hex4(value)));
}

std::optional<std::int32_t> Bosch::Read(std::int32_t object) {
  const auto reply = SendCommand(BuildCommand(ReadLead, Group, object, ReadOperation, ""));
  if (!reply) return std::nullopt;
  LogMessage("Returning XML reply");
  XmlDocument document;
  document.LoadXml(*reply);  // a reply that is no document has no result
  const auto* result = document.SelectSingleNode(ResultQuery);
  return result == nullptr ? std::nullopt : ValueIn(result->Text());
}

std::optional<std::string> Bosch::SendCommand(std::string_view payload) {
  return Request(std::string(MessagePath).append(payload));
}

}  // namespace ptzd
