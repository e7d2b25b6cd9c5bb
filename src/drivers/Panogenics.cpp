// Panogenics cameras: HTTP GET of CGI pages, each of a numbered view. Replies are bare or stand in an HTML
// page: "PTZ OK" where a move is obeyed, "view=1 apan:190 atilt:-10 azoom:250" for a position. A view from 1
// to 4 has a twin in low resolution, four numbers up.

#include "drivers/Panogenics.h"

#include <algorithm>

#include "common/Angles.h"
#include "common/Concatenation.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr std::string_view MovePage = "/ptz/ptz.cgi";
constexpr std::string_view PositionPage = "/ptz/listptz.cgi";
constexpr std::string_view SavePage = "/presets/setpreset.cgi";
constexpr std::string_view RecallPage = "/presets/gotopreset.cgi";
constexpr std::string_view ProbePath = "/admin/listcamparam.cgi";

// The first blank is plain and the second encoded, on purpose.
constexpr std::string_view PresetName = "Quorvane preset%20";

constexpr std::string_view PageStart = "<html><body>", PageEnd = "</body></html>";
constexpr std::string_view Obeyed = "PTZ OK";

constexpr std::int32_t FirstView = 1, LastLinkedView = 4, TwinDistance = 4;
constexpr float MaxZoom = 10;
constexpr double ZoomUnits = 50;  // of the camera, per zoom unit

std::string Unwrapped(const std::string& reply) {
  if (!reply.starts_with(PageStart) || !reply.ends_with(PageEnd)) return reply;
  return reply.substr(PageStart.size(), reply.size() - PageStart.size() - PageEnd.size());
}

/// The camera's number of a preset, which counts from 1.
std::string IndexText(std::int32_t preset) { return Text(ToInt32(preset + 1.0)); }

constexpr TypedOption<bool> LinkViewsOption{{.Name = "LinkViews",
                                             .Description = "Link high and low resolution views",
                                             .OType = OptionBoolean,
                                             .Default = true}};
constexpr const DriverOption* Options[] = {&AddressOption, &PortOption<std::int16_t>, &LinkViewsOption};

constexpr Evidence Signs[] = {
    {.Request = "/ptz/listptz.cgi?view=1", .Pattern = "view=1 apan:*atilt:*azoom:#"},
};
constexpr std::string_view MakeNames[] = {"Panogenics"};

}  // namespace

const DriverData Panogenics::Data = {
    .Class = "QVPTZ.Panogenics",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityPreset |
                    CapabilityMultiport | CapabilityExtendedOptions,
    .PresetCount = 8,
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::Outcome,
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .DisconnectAnswersTrue = false,
    .OppositesCancel = true,
    .SendsEmptyZooms = true,
    .PositionRequests = AsksOnConnecting | AsksBeforeMove | AsksBeforeZoom,
    .PanRange = ValueRange{-180, 180, "degrees", Beyond::GoesAround},
    .TiltRange = ValueRange{},
    .ZoomRange = ValueRange{0, MaxZoom, "zoom levels", Beyond::Limited},
    .NoAddress = DriverData::Failure{PTZErrorConnectionFailed, "No device address specified."},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Panogenics::Panogenics(const Platform& platform)
    : WithZoom(Data, platform, SendingStyle), DescribedOptions(Data) {}

bool Panogenics::Open() {
  if (!Request(ProbePath)) Raise(PTZErrorConnectionFailed, "Application-defined or object-defined error");

  const auto port = PortOption<std::int16_t>.In(Options_);
  const bool link = LinkViewsOption.In(Options_);
  View_ = port == 0 ? FirstView : port;
  LinkViews_ = link && View_ >= FirstView && View_ <= LastLinkedView;
  ReadPosition();
  return true;
}

bool Panogenics::GoTo(HeadPosition target) {
  target = {WithinHalfTurn(ToSingle(target.Pan)), ToSingle(target.Tilt),
            ToSingle(std::clamp<double>(target.Zoom, 0, MaxZoom))};

  const auto pan = ToInt32(target.Pan), tilt = ToInt32(target.Tilt);
  const auto zoom = ToInt32(ToSingle(target.Zoom * ZoomUnits));
  const bool obeyed = SendCommand("&apan=" + Text(pan) + "&atilt=" + Text(tilt) + "&azoom=" + Text(zoom));
  Current_ = target;  // also where the camera did not obey, on purpose
  return obeyed;
}

bool Panogenics::SavePreset(std::int32_t preset) {
  const auto index = IndexText(preset);
  return RequestView(SavePage, View_, "&index=" + index + "&name=" + PresetName + index + "&used=1")
      .has_value();
}

bool Panogenics::GoToPreset(std::int32_t preset) {
  return RequestView(RecallPage, View_, "&index=" + IndexText(preset)).has_value();
}

void Panogenics::QueryPosition() {
  const auto reply = RequestView(PositionPage, View_);
  if (!reply) return;
  auto position = Current_;
  const auto equals = reply->find('=');
  const auto rows = equals == std::string::npos ? *reply : reply->substr(equals + 1);
  for (const auto& [name, value] : Split2D(rows, " ", ":")) {
    if (name == "apan") position.Pan = ToSingle(Val(value));
    if (name == "atilt") position.Tilt = ToSingle(Val(value));
    if (name == "azoom") position.Zoom = ToSingle(Val(value) / ZoomUnits);
  }
  position.Pan = WithinHalfTurn(ToSingle(position.Pan));
  Current_ = position;
}

/// A twin moves only after its view has obeyed, and then has the last word.
bool Panogenics::SendCommand(const std::string& parameters) {
  if (RequestView(MovePage, View_, parameters) != Obeyed) return false;
  return !LinkViews_ || RequestView(MovePage, View_ + TwinDistance, parameters) == Obeyed;
}

std::optional<std::string> Panogenics::RequestView(std::string_view page, std::int32_t view,
                                                   const std::string& parameters) {
  const auto reply = Request(page + "?view=" + Text(view) + parameters);
  if (!reply) return std::nullopt;
  return Unwrapped(*reply);
}

}  // namespace ptzd
