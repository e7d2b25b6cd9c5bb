// Toshiba cameras with fine positions: HTTP GET, replies of lines that begin with "20 OK". A position reply
// has a line for each axis, as "PAN (3858)".

#include "drivers/Toshiba2.h"

#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/CommandTable.h"
#include "drivers/kit/Options.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view PositionPath = "/api/wbgetptzposition.cgi";
constexpr std::string_view ZoomPath = "/api/wbsetzoom.cgi?type=Set&Zoom=";
constexpr std::string_view StorePath =
    "/api/wbsetptpreset.cgi?type=PresetNumber-64&PresetName=Quorvane&PanPosition=";
constexpr std::string_view StoreTiltParameter = "&TiltPosition=";
constexpr std::string_view RecallPath = "/api/wbpresetapi.cgi?cont_4=320";  // 256 and the preset's number

constexpr RequestStyle Style{
    .TellsWhy = false,
    .Accepts = [](std::string_view reply) { return reply.starts_with("20 OK"); },
};

// Camera units per degree. Tilt counts downwards.
constexpr double PanScale = 22.04571429;
constexpr double TiltScale = 21.80833333;
constexpr double LeftEnd = -175;  // degrees at unit 0
constexpr double UpperEnd = 30;   // degrees at unit 0

constexpr CommandRow<Zooms> ZoomCommands[] = {{ZoomIn, "Tele"}, {ZoomOut, "Wide"}};

constexpr const DriverOption* Options[] = {&AddressOption};

constexpr Evidence Signs[] = {
    {.Request = PositionPath, .Pattern = "^20 OK*PAN (#"},
};
constexpr std::string_view MakeNames[] = {"Toshiba"};

}  // namespace

const DriverData Toshiba2::Data = {
    .Class = "QVPTZ.Toshiba2",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom,
    // The moves are made, their results are not passed on.
    .Move = MemberRule::FailsIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,
    .MoveBoth = MemberRule::FailsIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::Taken,
    .PositionRequests = AsksOnConnecting,
    .PanRange = ValueRange{},
    .TiltRange = ValueRange{},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Toshiba2::Toshiba2(const Platform& platform) : HTTPDriver(Data, platform, Style) {}

bool Toshiba2::Open() {
  const auto reply = Request(PositionPath);
  if (!reply) return false;
  Read(*reply);
  return true;
}

/// Stores and recalls, whatever the camera answers.
bool Toshiba2::GoTo(HeadPosition target) {
  const auto pan = ToInt32(target.Pan), tilt = ToInt32(target.Tilt);
  const auto panUnits = ToInt32((pan - LeftEnd) * PanScale);
  const auto tiltUnits = ToInt32((UpperEnd - tilt) * TiltScale);
  Request(StorePath + Text(panUnits) + StoreTiltParameter + Text(tiltUnits));
  Request(RecallPath);
  Current_ = {0.0 + pan, 0.0 + tilt};
  return true;
}

bool Toshiba2::ZoomBy(Zooms direction, float) {
  return Request(std::string(ZoomPath).append(CommandFor(direction, ZoomCommands))).has_value();
}

/// Keeps the position where the reply tells none. Raises 6 for one beyond 32 bits.
void Toshiba2::Read(std::string_view reply) {
  ReadOrKeepPosition([&] {
    auto position = Current_;
    for (const auto& [name, value] : Split2D(reply, "\r\n", " ")) {
      if (!value.starts_with('(') || !value.ends_with(')')) continue;
      const auto units = [&value = value] { return NumberFromText(value.substr(1, value.size() - 2)); };
      if (name == "PAN") position.Pan = ToInt32(units() / PanScale + LeftEnd);
      if (name == "TILT") position.Tilt = ToInt32(UpperEnd - units() / TiltScale);
    }
    Current_ = position;
  });
}

void Toshiba2::TakePlace(float pan, float tilt) { Current_ = {0.0 + ToInt32(pan), 0.0 + ToInt32(tilt)}; }

}  // namespace ptzd
