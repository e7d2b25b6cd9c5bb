// Elmo PTC-402C: all three axes in one command, accepted by any reply that is not empty. The position comes
// as XML, its numbers with or without a remark: "9275", "9275 (0.0)" or "pan (9275)".

#include "drivers/Elmo402.h"

#include <ptzd/Logging.h>
#include "common/Numbers.h"
#include "platform/XmlDocument.h"

namespace ptzd {

namespace {

constexpr double ZoomScale = 418;  // camera units of zoom to one unit of the interface

/// The number before a remark in parentheses or, where there is none, inside them. Raises 13 for any other
/// text.
double RemarkedNumber(std::string_view text) {
  const auto open = text.find('(');
  const auto before = text.substr(0, open);
  if (open == text.npos || before.find_first_of("0123456789") != text.npos) return NumberFromText(before);
  const auto inside = text.substr(open + 1);
  const auto close = inside.find(')');
  return NumberFromText(close == text.npos ? std::string_view() : inside.substr(0, close));
}

std::optional<double> NumberAt(const XmlNode& position, XmlQuery name) {
  const auto* node = position.SelectSingleNode(name);
  if (node == nullptr) return std::nullopt;
  return RemarkedNumber(node->Text());
}

constexpr Evidence Signs[] = {
    {.Request = "/cgi-bin/pget?g_pos", .Pattern = "<pget>*<s_pospan>"},
};
constexpr std::string_view MakeNames[] = {"Elmo"};

}  // namespace

const DriverData Elmo402::Data = {
    .Class = "QVPTZ.Elmo402",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityHome,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::OutcomeIfConnected,
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

Elmo402::Elmo402(const Platform& platform)
    : Elmo400(Data, platform,
              {.CommandPath = "/cgi-bin/exec?",
               .PositionPath = "/cgi-bin/pget?g_pos",
               .HomeCommand = "x_preprst=HOME"}) {}

bool Elmo402::Accepts(std::string_view reply) const { return !reply.empty(); }

std::vector<std::string> Elmo402::MoveCommands(const HeadPosition& target) const {
  return {"x_pospan=" + Text(target.Pan) + "&x_postilt=" + Text(target.Tilt) +
          "&x_poszoom=" + Text(ToSingle(target.Zoom * ZoomScale))};
}

Elmo402::Reading Elmo402::Read(const std::string& reply) const {
  XmlDocument document;
  if (!document.LoadXml(reply))
    LogMessage("Position not read. " + document.ParseError().Reason, LogLevel::Warning);
  const auto* position = document.SelectSingleNode("pget/pos");
  if (position == nullptr) return {};
  Reading reading{NumberAt(*position, "s_pospan"), NumberAt(*position, "s_postilt"),
                  NumberAt(*position, "s_poszoom")};
  if (reading.Zoom) *reading.Zoom /= ZoomScale;
  return reading;
}

}  // namespace ptzd
