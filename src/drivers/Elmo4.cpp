// Elmo 400 series: one parameter to a command, answered by lines among which is "Return:0". The position
// comes as lines of "c_span:9275".

#include "drivers/Elmo4.h"

#include "common/Numbers.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view PanKey = "c_span";
constexpr std::string_view TiltKey = "c_tilt";
constexpr std::string_view ZoomKey = "c_zoom";

// Camera units of zoom.
constexpr double ZoomScale = 432;  // to one unit of the interface
constexpr double WidestZoom = 64;

constexpr Evidence Signs[] = {
    {.Request = "/cgi-bin/list?group=pos", .Pattern = "group:pos*c_span:#"},
};
constexpr std::string_view MakeNames[] = {"Elmo"};

}  // namespace

const DriverData Elmo4::Data = {
    .Class = "QVPTZ.Elmo4",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityPreset | CapabilityHome,
    .PresetCount = 16,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
    .PresetGoto = MemberRule::OutcomeIfConnected,
    .PresetSave = MemberRule::OutcomeIfConnected,
    .Home = MemberRule::OutcomeIfConnected,
    .SetPanTilt = PlaceRule::AsksAnew,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom,
    .PanRange = PanDegrees,
    .TiltRange = TiltDegrees,
    .ZoomRange = ZoomLevels,
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Elmo4::Elmo4(const Platform& platform)
    : Elmo400(Data, platform,
              {.CommandPath = "/cgi-bin/set?",
               .PositionPath = "/cgi-bin/list?group=pos",
               .HomeCommand = "c_prst=17"}) {}

bool Elmo4::Accepts(std::string_view reply) const { return reply.find("Return:0") != reply.npos; }

/// Only what changes is sent.
std::vector<std::string> Elmo4::MoveCommands(const HeadPosition& target) const {
  const auto command = [](std::string_view key, std::string_view value) {
    return std::string(key).append("=").append(value);
  };
  std::vector<std::string> commands;
  if (target.Pan != Current_.Pan) commands.push_back(command(PanKey, Text(target.Pan)));
  if (target.Tilt != Current_.Tilt) commands.push_back(command(TiltKey, Text(target.Tilt)));
  if (target.Zoom != Current_.Zoom)
    commands.push_back(command(ZoomKey, Text(ToSingle(target.Zoom * ZoomScale + WidestZoom))));
  return commands;
}

Elmo4::Reading Elmo4::Read(const std::string& reply) const {
  Reading reading;
  for (const auto& [key, value] : Split2D(reply, "\r\n", ":")) {
    if (key == PanKey) reading.Pan = NumberFromText(value);
    if (key == TiltKey) reading.Tilt = NumberFromText(value);
    if (key == ZoomKey) reading.Zoom = (NumberFromText(value) - WidestZoom) / ZoomScale;
  }
  return reading;
}

// The camera counts its presets from 1.

bool Elmo4::SavePreset(std::int32_t preset) {
  return preset >= 0 && preset < Data.PresetCount && SendCommand("c_pmem=" + Text(preset + 1));
}

bool Elmo4::GoToPreset(std::int32_t preset) {
  return preset >= 0 && preset < Data.PresetCount && Recall("c_prst=" + Text(preset + 1));
}

}  // namespace ptzd
