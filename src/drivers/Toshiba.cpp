// Toshiba cameras with a grid of positions: HTTP GET, any reply accepts a command. A position is one number,
// the pan point times 256 plus the tilt point.

#include "drivers/Toshiba.h"

#include <algorithm>

#include <ptzd/Error.h>
#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr const char* PositionPath = "/getcurrentptpointapi.htm";
constexpr const char* MovePath = "/directmoveapi.cgi?cont_3=";
constexpr const char* ReplyPage = "&ok=dummy.htm";

constexpr RequestStyle Style{.Failure = "Request failed."};

// Points per degree. Tilt counts downwards.
constexpr double PanScale = 0.1429;
constexpr double TiltScale = -0.1852;
constexpr double LeftEdge = -56;  // degrees at the first point
constexpr double UpperEdge = 5;   // degrees at the first point
constexpr std::int16_t FirstPoint = 3;
constexpr std::int16_t LastPan = 19;
constexpr std::int16_t LastTilt = 13;

}  // namespace

const DriverData Toshiba::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .ReadsPosition = PositionReading::OnConnect,
    .ConnectsUnheard = true,
};

Toshiba::Toshiba(const Platform& platform) : HTTPDriver(platform, Style) {}

/// The nearest point of the grid. Raises 6 for a place beyond 16 bits.
Toshiba::Point Toshiba::Point::Near(double pan, double tilt) {
  const auto nearestPan = ToInt16(pan), nearestTilt = ToInt16(tilt);
  return {std::clamp(nearestPan, FirstPoint, LastPan), std::clamp(nearestTilt, FirstPoint, LastTilt)};
}

/// The same for degrees.
Toshiba::Point Toshiba::Point::At(float pan, float tilt) {
  return Near(PanScale * (pan - LeftEdge) + FirstPoint, TiltScale * (tilt - UpperEdge) + FirstPoint);
}

/// The second word of a reply. The camera counts from 0 here but not in commands. Raises 13 where there is no
/// number, 6 for one beyond 32 bits.
Toshiba::Point Toshiba::Point::Reported(std::string_view reply) {
  const auto words = Split(reply, " ");
  const auto word = words.size() > 1 ? words[1] : std::string_view();
  const auto point = ToInt32(NumberFromText(word.substr(0, word.find_first_of("\r\n"))));
  return {ToInt16((point >> 8 & 0xFF) + FirstPoint), ToInt16((point & 0xFF) + FirstPoint)};
}

/// Connected also where the camera does not answer, on purpose: it may not know the question.
bool Toshiba::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  if (Options_.Text("Address").empty()) return false;
  ReadPosition();
  return Connected_ = true;
}

/// Keeps the position where the reply tells none.
void Toshiba::ReadPosition() {
  const auto reply = Request(PositionPath);
  if (!reply || reply->empty()) return;
  try {
    Current_ = Point::Reported(*reply);
  } catch (const Error& error) {
    LogPositionNotRead(error);
  }
}

float Toshiba::Pan() { return ToSingle((Current_.Pan - FirstPoint) / PanScale + LeftEdge); }

float Toshiba::Tilt() { return ToSingle((Current_.Tilt - FirstPoint) / TiltScale + UpperEdge); }

bool Toshiba::Move(Directions direction, float angle) {
  if (!Connected_) return false;
  const auto step = StepOf(direction, angle);
  return MoveToPoint(Point::Near(Current_.Pan + PanScale * step.Pan, Current_.Tilt + TiltScale * step.Tilt));
}

bool Toshiba::MoveBoth(float panAngle, float tiltAngle) {
  if (!Connected_) return false;
  return MoveToPoint(Point::Near(Current_.Pan + PanScale * panAngle, Current_.Tilt + TiltScale * tiltAngle));
}

bool Toshiba::MoveTo(float pan, float tilt) { return Connected_ && MoveToPoint(Point::At(pan, tilt)); }

bool Toshiba::MoveToPoint(const Point& target) {
  if (target.Pan == Current_.Pan && target.Tilt == Current_.Tilt) return true;
  if (!Request(MovePath + Text(target.Pan * 256 + target.Tilt) + ReplyPage)) return false;
  Current_ = target;
  return true;
}

void Toshiba::SetPanTilt(float pan, float tilt) {
  if (Connected_) Current_ = Point::At(pan, tilt);
}

Variant Toshiba::Disconnect() {
  Connected_ = false;
  return true;
}

}  // namespace ptzd
