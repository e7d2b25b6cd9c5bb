// The surveillance system's own HTTP interface: offsets and joystick values to a page of a feed by GET, taken
// with the bare text "OK"; feeds and named presets listed as XML, whose element names vary but for "preset".

#include "drivers/Quorvane.h"

#include <set>

#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "platform/CodePages.h"
#include "platform/LetterCase.h"
#include "platform/XmlDocument.h"
#include "transport/HTTP.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

constexpr std::string_view ControlPath = "/ptz/control.htm?";
constexpr std::string_view PresetsPath = "/ptz/presets.xml?";
constexpr std::string_view FeedListPath = "/feedlist.xml?showstopped";  // stopped feeds too
constexpr std::string_view FeedParameter = "feed=";

constexpr std::string_view Accepted = "OK";

}  // namespace

const DriverData Quorvane::Data = {
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FalseIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::TrueIfConnected,
    .DisconnectAnswersTrue = false,
    .NeedsOptions = true,
    .SharedOptions = SharesAddress | SharesReset,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
};

/// The reply, or why there is none.
struct Quorvane::Outcome {
  std::optional<std::string> Reply;
  std::string Failure;
};

Quorvane::Quorvane(const Platform& platform) : HTTPDriver(platform) {}

Capabilities Quorvane::Capabilities() {
  return CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityFullZoom | CapabilityContinuousMove |
         CapabilityExtendedOptions | CapabilityRelativeControl | CapabilityContinuousZoom |
         CapabilityNamedPresets;
}

bool Quorvane::Connect(std::span<const std::uint8_t> options) {
  HasOptions_ = true;
  OpenOptions(options);
  RequireAddress(Options_, Data);
  FeedID_ = FindFeed(Options_.Text("Feed"));
  if (FeedID_.empty()) Raise(PTZErrorUnrecognisedDevice, "Unrecognised feed");
  if (!Fetch("").Reply) Raise(PTZErrorConnectionFailed, "Unable to connect to the device");
  if (Options_.Boolean("Reset", false)) SetPosition(0, 0, 0);
  Connected_ = true;
  return true;
}

/// The id of the feed with this name, or else the text itself.
std::string Quorvane::FindFeed(const std::string& feed) {
  if (feed.empty()) return {};
  const auto id = LookUpFeed(feed);
  return id && !id->empty() ? *id : feed;
}

std::optional<std::string> Quorvane::LookUpFeed(const std::string& feed) {
  LogMessage("Requesting feed list");
  // A whole URL as the path: the address stands in the request twice, on purpose. It hardly ever succeeds.
  const auto list = Fetch(UrlOf(FeedListPath));
  if (!list.Reply) {
    LogMessage("Request failed. " + list.Failure);
    return std::nullopt;
  }
  XmlDocument document;
  document.LoadXml(*list.Reply);  // a reply that is no document lists no feeds
  const auto* root = document.DocumentElement();
  if (root == nullptr) return std::nullopt;
  const auto wanted = LowerCase(feed);
  for (const auto& child : root->Children) {
    if (!child.IsElement()) continue;
    const auto name = child.Attribute("name");
    LogMessage("Comparing against " + name.value_or(""));
    if (!name || LowerCase(*name) != wanted) continue;
    auto id = child.Attribute("id");
    LogMessage("Found " + id.value_or(""));
    return id;
  }
  return std::nullopt;
}

std::string Quorvane::UrlOf(std::string_view path) const {
  if (!HasOptions_) Raise(ErrorObjectNotSet);
  return Url(path);
}

Quorvane::Outcome Quorvane::Fetch(std::string_view path) {
  const auto url = UrlOf(path);
  LogMessage("Sending: " + url);
  try {
    auto reply = DecodeBytes(Client_.GetResource(url, "", ""), CodePage1252);
    LogMessage("Received: " + reply);
    return {.Reply = std::move(reply)};
  } catch (const Error& error) {
    return {.Failure = error.Description()};
  }
}

bool Quorvane::SendCommand(std::string_view parameters) {
  std::string path(ControlPath);
  if (!FeedID_.empty()) path.append(FeedParameter).append(UrlEncode(FeedID_));
  if (!parameters.empty()) path.append("&").append(parameters);
  return Fetch(path).Reply == Accepted;
}

/// Moves by the offset from the model; the move is sent even where there is none.
bool Quorvane::SetPosition(float pan, float tilt, float zoom) {
  const auto newPan = ToInt32(pan), newTilt = ToInt32(tilt);
  const auto offset = [](std::int32_t target, std::int32_t current) {
    return Text(ToInt32(static_cast<double>(target) - current));
  };
  std::string parameters = "move=offset";
  if (newPan != CurrentPan_) parameters += "&pan=" + offset(newPan, CurrentPan_);
  if (newTilt != CurrentTilt_) parameters += "&tilt=" + offset(newTilt, CurrentTilt_);
  if (zoom != CurrentZoom_) parameters += "&zoom=offset&level=" + Text(zoom - CurrentZoom_);
  if (!SendCommand(parameters)) return false;
  CurrentPan_ = newPan;
  CurrentTilt_ = newTilt;
  CurrentZoom_ = zoom;
  return true;
}

bool Quorvane::DeviceMove(Directions direction, float angle) {
  if (!Connected_) return false;
  const auto step = StepOf(direction, angle);
  const double pan = CurrentPan_ + step.Pan, tilt = CurrentTilt_ + step.Tilt;
  return SetPosition(static_cast<float>(ToInt32(pan)), static_cast<float>(ToInt32(tilt)), CurrentZoom_);
}

bool Quorvane::DeviceMoveBoth(float panAngle, float tiltAngle) {
  if (!Connected_) return false;
  return SetPosition(ToSingle(static_cast<double>(CurrentPan_) + panAngle),
                     ToSingle(static_cast<double>(CurrentTilt_) + tiltAngle), CurrentZoom_);
}

bool Quorvane::MoveTo(float pan, float tilt) {
  MoveTo(pan, tilt, CurrentZoom_);
  return false;
}

void Quorvane::MoveTo(float pan, float tilt, float zoom) {
  if (Connected_) SetPosition(pan, tilt, zoom);
}

bool Quorvane::Zoom(Zooms zoomLevel) {
  Zoom(zoomLevel, ZoomStepAmount);
  return Connected_;
}

void Quorvane::Zoom(Zooms direction, float amount) {
  if (IsZoomStep(direction)) ZoomTo(CurrentZoom_ + ZoomStepOf(direction, amount));
}

void Quorvane::ZoomTo(float zoom) {
  if (Connected_) SetPosition(static_cast<float>(CurrentPan_), static_cast<float>(CurrentTilt_), zoom);
}

void Quorvane::ContinuousMove(float pan, float tilt) {
  const auto parameters = "move=joystick&x=" + Text(pan) + "&y=" + Text(tilt);
  if (LastMove_.Replace(parameters, pan == 0 && tilt == 0)) SendCommand(parameters);
}

void Quorvane::ContinuousZoom(float amount) {
  const auto parameters = "zoom=joystick&level=" + Text(amount);
  if (LastZoom_.Replace(parameters, amount == 0)) SendCommand(parameters);
}

std::vector<PTZNamedPreset> Quorvane::GetNamedPresets() {
  std::string path(PresetsPath);
  if (!FeedID_.empty()) path.append(FeedParameter).append(FeedID_);  // as it stands, unlike in a command
  LogMessage("Requesting " + path);
  const auto reply = Client_.GetResource(UrlOf(path), "", "");
  std::string message;  // comes with the CR that ends the status line, and passes on with it
  const auto code = Client_.GetResultCode(message);
  if (code == "401") Raise(PTZErrorAuthenticationFailure, "Invalid authentication details");
  if (code.empty()) Raise(PTZErrorConnectionFailed, "Unrecognised HTTP reply");
  if (code != "200") Raise(PTZErrorConnectionFailed, "HTTP error " + code + " " + MaskCredentials(message));

  XmlDocument document;
  if (!document.LoadXml(DecodeBytes(reply, CodePage1252)))
    throw Error(document.ParseError().ErrorCode, MaskCredentials(document.ParseError().Reason), "MS XML");
  std::vector<PTZNamedPreset> presets;
  std::set<std::string> ids;
  for (const auto* preset : document.DocumentElement()->SelectNodes("preset")) {
    const auto id = preset->Attribute("id").value_or("");
    if (!ids.insert(id).second) Raise(ErrorDuplicateKey);
    presets.emplace_back(static_cast<std::int32_t>(presets.size()), id,
                         preset->Attribute("name").value_or(""));
  }
  return presets;
}

void Quorvane::GotoNamedPreset(const std::string& id) {
  SendCommand("move=preset&preset=" + id);  // the id as it stands
}

Variant Quorvane::DeviceDisconnect() {
  Connected_ = false;
  return {};
}

std::optional<PTZOption> Quorvane::Item(const Variant& indexKey) {
  auto option = TabledOptions::Item(indexKey);
  return option->Name().empty() ? std::nullopt : option;
}

std::span<const OptionRow> Quorvane::OptionTable() const {
  static const OptionRow table[] = {{"Feed", "Feed name", OptionText, {}, std::string()}};
  return table;
}

}  // namespace ptzd
