// Grandeye cameras: HTTP GET. Positions come as rows of "vcamapan0=30", in any case of letters; a command is
// accepted by any reply. The camera's pan runs to the left, its tilt from 0 to 90 with the horizon at 45, and
// a relative zoom widens the picture. Commands count the views from 1, queries from 0.

#include "drivers/Grandeye.h"

#include <algorithm>

#include <ptzd/Error.h>
#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/Options.h"
#include "platform/LetterCase.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view ControlPath = "/com/ptz.cgi?";
constexpr std::string_view ChannelParameter = "camera=";
constexpr std::string_view QueryPath = "/getparam.cgi?";

// What a query names and its reply tells, with the view's number behind.
constexpr std::string_view PanName = "vcamapan";
constexpr std::string_view TiltName = "vcamatilt";
constexpr std::string_view ZoomName = "vcamazoom";

// Inverted on purpose: the camera's zoom is the width of its picture.
constexpr std::string_view ZoomInCommand = "rzoom=-250", ZoomOutCommand = "rzoom=250";

constexpr std::int32_t HalfTurn = 180;  // degrees
constexpr std::int32_t MaxTilt = 45;    // degrees, either way
constexpr std::int32_t LevelTilt = 45;  // the camera's tilt at the horizon
constexpr double ZoomUnits = 3446.5;    // camera zoom units; its zoom begins at 1

constexpr const DriverOption* Options[] = {&AddressOption, &PortOption<std::int32_t>};

constexpr Evidence Signs[] = {
    {.Request = "/getparam.cgi?vcamapan0&vcamatilt0&vcamazoom0", .Pattern = "vcamapan0=*vcamatilt0="},
};
constexpr std::string_view MakeNames[] = {"Grandeye"};

}  // namespace

const DriverData Grandeye::Data = {
    .Class = "QVPTZ.Grandeye",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityMultiport,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::SucceedsIfConnected,
    .SetPanTilt = PlaceRule::AsksAnewIfConnected,
    .DisconnectAnswersTrue = false,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeMoveTo | AsksBeforeAnswer,
    .PanRange = ValueRange{-HalfTurn, HalfTurn, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{-MaxTilt, MaxTilt, "degrees", Beyond::Limited},
    .ConnectsUnheard = true,
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Grandeye::Grandeye(const Platform& platform) : HTTPDriver(Data, platform) {}

/// From here on nothing speaks against connecting.
bool Grandeye::Open() {
  QueriedView();  // must be a number
  try {
    QueryPosition();
  } catch (const Error& error) {
    LogPositionNotRead(error);
  }
  PositionAge_.Set(TickCount());  // one that is stale is asked for again
  return true;
}

/// Goes to the nearest whole degrees; only what changes is sent.
bool Grandeye::GoTo(HeadPosition target) {
  const auto pan = ToInt32(ToSingle(target.Pan));
  const auto tilt = std::clamp(ToInt32(ToSingle(target.Tilt)), -MaxTilt, MaxTilt);

  std::string command;
  if (pan != Current_.Pan) AppendParameter(command, "pan=" + Text(ToInt32(-static_cast<double>(pan))));
  if (tilt != Current_.Tilt) AppendParameter(command, "tilt=" + Text(tilt + LevelTilt));
  if (!command.empty() && !SendCommand(command)) return false;

  // The camera was sent the pan as it came; what is kept of it goes around once.
  const auto turn = pan < -HalfTurn ? 2 * HalfTurn : pan > HalfTurn ? -2 * HalfTurn : 0;
  Current_ = {0.0 + pan + turn, 0.0 + tilt, std::max(Current_.Zoom, 0.0)};
  PositionAge_.Set(TickCount());
  return true;
}

bool Grandeye::ZoomBy(Zooms direction, float) {
  const bool taken = SendCommand(direction == ZoomIn ? ZoomInCommand : ZoomOutCommand);
  PositionAge_.Expire();
  return taken;
}

/// Takes what the reply tells of the view.
void Grandeye::QueryPosition() {
  const auto view = QueriedView();
  const auto reply = Request(QueryPath + (PanName + view) + "&" + TiltName + view + "&" + ZoomName + view);
  if (!reply) return;
  auto position = Current_;
  for (const auto& [key, value] : Split2D(*reply, "\n", "=")) {
    const auto name = LowerCase(key);
    if (name == PanName + view) position.Pan = ToSingle(0 - Val(value));
    if (name == TiltName + view) position.Tilt = ToSingle(Val(value) - LevelTilt);
    if (name == ZoomName + view) position.Zoom = NearestQuarter(ToSingle((Val(value) - 1) / ZoomUnits));
  }
  Current_ = position;
}

/// The view's number as queries count.
std::string Grandeye::QueriedView() const {
  const auto port = PortOption<std::int32_t>.In(Options_);
  return Text(port == 0 ? 0 : ToInt32(port - 1.0));
}

bool Grandeye::SendCommand(std::string_view command) {
  return Request(CommandPath(ControlPath, ChannelParameter, command)).has_value();
}

}  // namespace ptzd
