// Toshiba cameras with a grid of positions: HTTP GET, any reply accepts a command. A position is one number,
// the pan point times 256 plus the tilt point.

#include "drivers/Toshiba.h"

#include <algorithm>

#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/Options.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view PositionPath = "/getcurrentptpointapi.htm";
constexpr std::string_view MovePath = "/directmoveapi.cgi?cont_3=";
constexpr std::string_view ReplyPage = "&ok=dummy.htm";

constexpr RequestStyle Style{.TellsWhy = false};

// Points per degree. Tilt counts downwards.
constexpr double PanScale = 0.1429;
constexpr double TiltScale = -0.1852;
constexpr double LeftEdge = -56;  // degrees at the first point
constexpr double UpperEdge = 5;   // degrees at the first point
constexpr std::int16_t FirstPoint = 3;
constexpr std::int16_t LastPan = 19;
constexpr std::int16_t LastTilt = 13;

constexpr const DriverOption* Options[] = {&AddressOption};

constexpr double PanAt(double point) { return (point - FirstPoint) / PanScale + LeftEdge; }
constexpr double TiltAt(double point) { return (point - FirstPoint) / TiltScale + UpperEdge; }

/// The nearest point of the grid, by the camera's numbers for it. Raises 6 for a place beyond 16 bits.
HeadPosition Near(double pan, double tilt) {
  const auto nearestPan = ToInt16(pan), nearestTilt = ToInt16(tilt);
  return {0.0 + std::clamp(nearestPan, FirstPoint, LastPan),
          0.0 + std::clamp(nearestTilt, FirstPoint, LastTilt)};
}

/// The same for degrees.
HeadPosition PointAt(double pan, double tilt) {
  return Near(PanScale * (pan - LeftEdge) + FirstPoint, TiltScale * (tilt - UpperEdge) + FirstPoint);
}

/// The second word of a reply. The camera counts from 0 here but not in commands. Raises 13 where there is no
/// number, 6 for one beyond 32 bits.
HeadPosition Reported(std::string_view reply) {
  const auto words = Split(reply, " ");
  const auto word = words.size() > 1 ? words[1] : std::string_view();
  const auto point = ToInt32(NumberFromText(word.substr(0, word.find_first_of("\r\n"))));
  return {0.0 + (point >> 8 & 0xFF) + FirstPoint, 0.0 + (point & 0xFF) + FirstPoint};
}

constexpr Evidence Signs[] = {
    {.Request = PositionPath, .Pattern = "PTPOINT #"},
};
constexpr std::string_view MakeNames[] = {"Toshiba"};

}  // namespace

const DriverData Toshiba::Data = {
    .Class = "QVPTZ.Toshiba",
    .Capabilities = CapabilityPan | CapabilityTilt,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::OutcomeIfConnected,
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::TakenIfConnected,
    .PositionRequests = AsksOnConnecting,
    .PositionStep = 7,  // half the way between two points, where the nearest one is taken
    .PanRange = ValueRange{PanAt(FirstPoint), PanAt(LastPan), "degrees", Beyond::Limited},
    .TiltRange = ValueRange{TiltAt(LastTilt), TiltAt(FirstPoint), "degrees", Beyond::Limited},
    .ConnectsUnheard = true,
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Toshiba::Toshiba(const Platform& platform) : HTTPDriver(Data, platform, Style) {}

/// Connected also where the camera does not answer, on purpose: it may not know the question.
bool Toshiba::Open() {
  ReadPosition();
  return true;
}

bool Toshiba::GoTo(HeadPosition target) { return GoToPoint(PointAt(target.Pan, target.Tilt)); }

bool Toshiba::StepBy(double pan, double tilt) {
  return GoToPoint(Near(Current_.Pan + PanScale * pan, Current_.Tilt + TiltScale * tilt));
}

bool Toshiba::GoToPoint(const HeadPosition& target) {
  if (target.Pan == Current_.Pan && target.Tilt == Current_.Tilt) return true;
  if (!Request(MovePath + Text(target.Pan * 256 + target.Tilt) + ReplyPage)) return false;
  Current_ = target;
  return true;
}

float Toshiba::Pan() { return ToSingle(PanAt(Current_.Pan)); }

float Toshiba::Tilt() { return ToSingle(TiltAt(Current_.Tilt)); }

/// Keeps the position where the reply tells none.
void Toshiba::QueryPosition() {
  const auto reply = Request(PositionPath);
  if (!reply || reply->empty()) return;
  try {
    Current_ = Reported(*reply);
  } catch (const Error& error) {
    LogPositionNotRead(error);
  }
}

void Toshiba::TakePlace(float pan, float tilt) { Current_ = PointAt(pan, tilt); }

}  // namespace ptzd
