// The surveillance system's own HTTP interface: offsets and joystick values to a page of a feed by GET, taken
// with the bare text "OK"; feeds and named presets listed as XML, whose element names vary but for "preset".

#include "drivers/Quorvane.h"

#include <set>

#include <ptzd/Logging.h>
#include "common/Credentials.h"
#include "common/Numbers.h"
#include "drivers/kit/DriverErrors.h"
#include "drivers/kit/Options.h"
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

constexpr TypedOption<std::string> FeedOption{
    {.Name = "Feed", .Description = "Feed name", .Default = std::string_view()}};
constexpr const DriverOption* Options[] = {&AddressOption, &ResetOption, &FeedOption};

constexpr Evidence Signs[] = {
    {.Request = FeedListPath, .Pattern = "<feeds>*<feed *name="},
};
constexpr std::string_view MakeNames[] = {"Quorvane"};

// What a remote system, `ptzgate` among them, takes as a joystick at its end. Values go out as they are.
constexpr ValueRange Joystick{-100, 100, "percent of a remote joystick"};

}  // namespace

const DriverData Quorvane::Data = {
    .Class = "QVPTZ.Quorvane",
    .Capabilities = CapabilityPan | CapabilityTilt | CapabilityZoom | CapabilityFullZoom |
                    CapabilityContinuousMove | CapabilityExtendedOptions | CapabilityRelativeControl |
                    CapabilityContinuousZoom | CapabilityNamedPresets,
    .Move = MemberRule::OutcomeIfConnected,
    .MoveTo = MemberRule::FailsIfConnected,  // the move is made, its result is not passed on
    .MoveBoth = MemberRule::OutcomeIfConnected,
    .Zoom = MemberRule::SucceedsIfConnected,
    .DisconnectAnswersTrue = false,
    .PanRange = ValueRange{.Unit = "the remote system's units"},
    .TiltRange = ValueRange{.Unit = "the remote system's units"},
    .ZoomRange = ValueRange{.Unit = "the remote system's units"},
    .PanSpeed = Joystick,
    .TiltSpeed = Joystick,
    .ZoomSpeed = Joystick,
    .NeedsOptions = true,
    .NoAddress = DriverData::Failure{PTZErrorNoAddressSpecified, "No address specified"},
    .Options = Options,
    .Evidence = Signs,
    .MakeNames = MakeNames,
};

Quorvane::Quorvane(const Platform& platform)
    : WithZoom(Data, platform, SendingStyle), ContinuousDriver(Data), DescribedOptions(Data) {}

bool Quorvane::Open() {
  FeedID_ = FindFeed(FeedOption.In(Options_));
  if (FeedID_.empty()) Raise(PTZErrorUnrecognisedDevice, "Unrecognised feed");
  if (Fetch("").Failure) Raise(PTZErrorConnectionFailed, "Unable to connect to the device");
  if (ResetOption.In(Options_)) GoTo({});
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
  const auto list = Fetch(Url(FeedListPath));
  if (list.Failure) {
    LogMessage("Request failed. " + list.Failure->Description(), LogLevel::Error);
    return std::nullopt;
  }
  XmlDocument document;
  document.LoadXml(list.Text);  // a reply that is no document lists no feeds
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

/// A step by a direction ends at whole units, before the offset is taken.
bool Quorvane::DeviceMove(Directions direction, float angle) {
  return Ruled(Data_.Move, [&] {
    const auto step = StepOf(direction, angle);
    return GoTo(
        {0.0 + ToInt32(Current_.Pan + step.Pan), 0.0 + ToInt32(Current_.Tilt + step.Tilt), Current_.Zoom});
  });
}

/// Moves by the offset from the model; the move is sent even where there is none.
bool Quorvane::GoTo(HeadPosition target) {
  target = {0.0 + ToInt32(ToSingle(target.Pan)), 0.0 + ToInt32(ToSingle(target.Tilt)), ToSingle(target.Zoom)};
  const auto offset = [](double to, double from) { return Text(ToInt32(to - from)); };
  std::string parameters = "move=offset";
  if (target.Pan != Current_.Pan) parameters += "&pan=" + offset(target.Pan, Current_.Pan);
  if (target.Tilt != Current_.Tilt) parameters += "&tilt=" + offset(target.Tilt, Current_.Tilt);
  if (target.Zoom != Current_.Zoom)
    parameters += "&zoom=offset&level=" + Text(ToSingle(target.Zoom - Current_.Zoom));
  if (!SendCommand(parameters)) return false;
  Current_ = target;
  return true;
}

std::vector<PTZNamedPreset> Quorvane::GetNamedPresets() {
  const LogScope scope(Subject_);
  std::string path(PresetsPath);
  if (!FeedID_.empty()) path.append(FeedParameter).append(FeedID_);  // as it stands, unlike in a command
  LogMessage("Requesting " + path);
  const auto reply = Get(path);
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

void Quorvane::ContinuousMove(float pan, float tilt) {
  const auto parameters = "move=joystick&x=" + Text(pan) + "&y=" + Text(tilt);
  if (LastMove_.Replace(parameters, pan == 0 && tilt == 0)) SendCommand(parameters);
}

void Quorvane::ContinuousZoom(float amount) {
  const auto parameters = "zoom=joystick&level=" + Text(amount);
  if (LastZoom_.Replace(parameters, amount == 0)) SendCommand(parameters);
}

std::optional<PTZOption> Quorvane::Item(const Variant& indexKey) {
  auto option = DescribedOptions::Item(indexKey);
  return option->Name().empty() ? std::nullopt : option;
}

bool Quorvane::SendCommand(std::string_view parameters) {
  std::string path(ControlPath);
  if (!FeedID_.empty()) path.append(FeedParameter).append(UrlEncode(FeedID_));
  if (!parameters.empty()) path.append("&").append(parameters);
  const auto reply = Fetch(path);
  return !reply.Failure && reply.Text == Accepted;
}

}  // namespace ptzd
