// Panogenics cameras: HTTP GET of CGI pages, each of a numbered view. Replies are bare or stand in an HTML
// page: "PTZ OK" where a move is obeyed, "view=1 apan:190 atilt:-10 azoom:250" for a position. A view from 1
// to 4 has a twin in low resolution, four numbers up.

#include "drivers/Panogenics.h"

#include <algorithm>

#include "common/Angles.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

constexpr const char* MovePage = "/ptz/ptz.cgi";
constexpr const char* PositionPage = "/ptz/listptz.cgi";
constexpr const char* SavePage = "/presets/setpreset.cgi";
constexpr const char* RecallPage = "/presets/gotopreset.cgi";
constexpr const char* ProbePath = "/admin/listcamparam.cgi";

// The first blank is plain and the second encoded, on purpose.
constexpr const char* PresetName = "Quorvane preset%20";

constexpr std::string_view PageStart = "<html><body>", PageEnd = "</body></html>";
constexpr std::string_view Obeyed = "PTZ OK";

constexpr std::int32_t FirstView = 1, LastLinkedView = 4, TwinDistance = 4;
constexpr std::int32_t NumberedPresets = 8;
constexpr float MaxZoom = 10;
constexpr double ZoomUnits = 50;  // of the camera, per zoom unit

std::string Unwrapped(const std::string& reply) {
  if (!reply.starts_with(PageStart) || !reply.ends_with(PageEnd)) return reply;
  return reply.substr(PageStart.size(), reply.size() - PageStart.size() - PageEnd.size());
}

/// The camera's number of a preset, which counts from 1.
std::string IndexText(std::int32_t preset) { return Text(ToInt32(preset + 1.0)); }

}  // namespace

const DriverData Panogenics::Data = {
    .Move = MemberRule::Outcome,
    .MoveTo = MemberRule::Outcome,
    .MoveBoth = MemberRule::Outcome,
    .Zoom = MemberRule::Outcome,
    .PresetGoto = MemberRule::Outcome,
    .PresetSave = MemberRule::Outcome,
    .DisconnectAnswersTrue = false,
    .ReadsPosition = PositionReading::BeforeSteps,
    .SharedOptions = SharesAddress | SharesPort,
    .NoAddress = DriverData::Failure{PTZErrorConnectionFailed, "No device address specified."},
};

Panogenics::Panogenics(const Platform& platform) : AbsoluteDriver(platform, SendingStyle) {}

Capabilities Panogenics::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityFullZoom | CapabilityPreset | CapabilityMultiport |
         CapabilityExtendedOptions;
}

bool Panogenics::Connect(std::span<const std::uint8_t> options) {
  OpenOptions(options);
  RequireAddress(Options_, Data);
  if (!Request(ProbePath)) Raise(PTZErrorConnectionFailed, "Application-defined or object-defined error");

  const auto port = Options_.Integer("Port", 0);
  const bool link = Options_.Boolean("LinkViews", true);
  View_ = port == 0 ? FirstView : port;
  LinkViews_ = link && View_ >= FirstView && View_ <= LastLinkedView;
  ReadPosition();
  Connected_ = true;
  return true;
}

std::optional<std::string> Panogenics::Fetch(const std::string& page, std::int32_t view,
                                             const std::string& parameters) {
  const auto reply = Request(page + "?view=" + Text(view) + parameters);
  if (!reply) return std::nullopt;
  return Unwrapped(*reply);
}

/// A twin moves only after its view has obeyed, and then has the last word.
bool Panogenics::SendCommand(const std::string& parameters) {
  if (Fetch(MovePage, View_, parameters) != Obeyed) return false;
  return !LinkViews_ || Fetch(MovePage, View_ + TwinDistance, parameters) == Obeyed;
}

std::optional<HeadPosition> Panogenics::QueryPosition() {
  const auto reply = Fetch(PositionPage, View_);
  if (!reply) return std::nullopt;
  auto position = Current_;
  const auto equals = reply->find('=');
  const auto rows = equals == std::string::npos ? *reply : reply->substr(equals + 1);
  for (const auto& [name, value] : Split2D(rows, " ", ":")) {
    if (name == "apan") position.Pan = ToSingle(Val(value));
    if (name == "atilt") position.Tilt = ToSingle(Val(value));
    if (name == "azoom") position.Zoom = ToSingle(Val(value) / ZoomUnits);
  }
  position.Pan = WithinHalfTurn(position.Pan);
  return position;
}

bool Panogenics::SetPosition(HeadPosition target) {
  target.Pan = WithinHalfTurn(target.Pan);
  target.Zoom = std::clamp(target.Zoom, 0.0F, MaxZoom);

  const auto pan = ToInt32(target.Pan), tilt = ToInt32(target.Tilt);
  const auto zoom = ToInt32(ToSingle(target.Zoom * ZoomUnits));
  const bool obeyed = SendCommand("&apan=" + Text(pan) + "&atilt=" + Text(tilt) + "&azoom=" + Text(zoom));
  Current_ = target;  // also where the camera did not obey, on purpose
  return obeyed;
}

std::int32_t Panogenics::PresetCount() { return NumberedPresets; }

bool Panogenics::PresetSave(std::int32_t preset) {
  const auto index = IndexText(preset);
  return Fetch(SavePage, View_, "&index=" + index + "&name=" + PresetName + index + "&used=1").has_value();
}

bool Panogenics::PresetGoto(std::int32_t preset) {
  return Fetch(RecallPage, View_, "&index=" + IndexText(preset)).has_value();
}

std::span<const OptionRow> Panogenics::OptionTable() const {
  static const OptionRow table[] = {
      {"LinkViews", "Link high and low resolution views", OptionBoolean, {}, true}};
  return table;
}

}  // namespace ptzd
