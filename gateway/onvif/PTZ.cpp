#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>

#include "gateway/core/Journal.h"
#include "gateway/onvif/Asked.h"
#include "gateway/onvif/Motions.h"
#include "gateway/onvif/Spaces.h"
#include "gateway/onvif/Times.h"

namespace ptzgate {

using namespace ptzd;
using namespace std::chrono_literals;
using std::chrono::milliseconds;
using Kind = Spaces::Kind;

namespace {

/// Of a drive whose client names no time; NVRs drive as long as a button is held, and then stop it.
constexpr milliseconds UsualTimeout = 10s;
constexpr milliseconds ShortestTimeout = 100ms;

/// Of presets that the gateway keeps, which knows no end of them; clients want a number.
constexpr std::int32_t MostPlaces = 256;

milliseconds DefaultTimeout(const GateSettings& settings) {
  return std::min(UsualTimeout, settings.LongestLease);
}

Element Node(const Asked& asked) {
  const auto& camera = *asked.Camera;
  const auto state = camera.State();
  const auto presets = camera.KeepsPlaces()  ? MostPlaces
                       : !HasPresets(camera) ? 0
                       : state.Connected     ? state.PresetCount
                                             : camera.Driver().Data->PresetCount;
  return Element("tptz:PTZNode", {Element("tt:Name", camera.Name()),
                                  Element("tt:SupportedPTZSpaces", Spaces(camera).Elements()),
                                  Element("tt:MaximumNumberOfPresets", std::to_string(presets)),
                                  Element("tt:HomeSupported", HasHome(camera) ? "true" : "false")})
      .With("token", NodeToken)
      .With("FixedHomePosition", "true");
}

void CheckToken(const Asked& asked, const char* argument, const char* token, const char* subcode) {
  const auto& asks = Required(asked.Action, argument).Text;
  if (asks != token)
    throw InvalidArgument(subcode, "camera " + asked.Name + " has no " + argument + " " + asks);
}

// What is asked for.

Element ServiceCapabilities(const Asked&) {
  return {"tptz:GetServiceCapabilitiesResponse", {PTZCapabilities()}};
}

Element Nodes(const Asked& asked) { return {"tptz:GetNodesResponse", {Node(asked)}}; }

Element OneNode(const Asked& asked) {
  CheckToken(asked, "NodeToken", NodeToken, "ter:NoEntity");
  return {"tptz:GetNodeResponse", {Node(asked)}};
}

Element Configurations(const Asked& asked) {
  return {"tptz:GetConfigurationsResponse",
          {PTZConfiguration(*asked.Camera, asked.Site.Settings(), "tptz:PTZConfiguration")}};
}

Element CompatibleConfigurations(const Asked& asked) {
  CheckProfile(asked);
  return {"tptz:GetCompatibleConfigurationsResponse",
          {PTZConfiguration(*asked.Camera, asked.Site.Settings(), "tptz:PTZConfiguration")}};
}

Element OneConfiguration(const Asked& asked) {
  CheckToken(asked, "PTZConfigurationToken", PTZToken, "ter:NoConfig");
  return {"tptz:GetConfigurationResponse",
          {PTZConfiguration(*asked.Camera, asked.Site.Settings(), "tptz:PTZConfiguration")}};
}

Element ConfigurationOptions(const Asked& asked) {
  CheckToken(asked, "ConfigurationToken", PTZToken, "ter:NoConfig");
  return {"tptz:GetConfigurationOptionsResponse",
          {Element("tptz:PTZConfigurationOptions",
                   {Element("tt:Spaces", Spaces(*asked.Camera).Elements()),
                    Element("tt:PTZTimeout",
                            {Element("tt:Min", DurationText(ShortestTimeout)),
                             Element("tt:Max", DurationText(asked.Site.Settings().LongestLease))})})}};
}

/// Whether it is known where the camera is, not only where it was sent.
bool IsKnown(const CameraPosition& at) {
  return at.Kind == PositionKind::Read || at.Kind == PositionKind::Estimated;
}

Element Status(const Asked& asked) {
  const auto& camera = *asked.Camera;
  const auto state = camera.State();
  const auto& ranges = camera.RangesNow();
  const auto& at = state.Position;
  const bool isKnown = IsKnown(at);
  const Spaces spaces(camera);
  const bool hasZoom = spaces.HasZoom(Kind::Position) || spaces.HasZoom(Kind::Velocity);

  Element status("tptz:PTZStatus");
  Element position("tt:Position");
  if (isKnown && ranges.Pan && ranges.Tilt)
    position.Children.push_back(spaces.PanTiltElement(at.Pan, at.Tilt));
  if (isKnown && at.Zoom && ranges.Zoom) position.Children.push_back(spaces.ZoomElement(*at.Zoom));
  if (!position.Children.empty()) status.Children.push_back(std::move(position));
  const char* motion = state.Motion == CameraMotion::AtRest    ? "IDLE"
                       : state.Motion == CameraMotion::Unknown ? "UNKNOWN"
                                                               : "MOVING";
  Element moves("tt:MoveStatus", {Element("tt:PanTilt", motion)});
  if (hasZoom) moves.Children.emplace_back("tt:Zoom", motion);
  status.Children.push_back(std::move(moves));
  if (state.Link == LinkHealth::Lost)
    status.Children.emplace_back("tt:Error",
                                 state.ErrorText.empty() ? "the camera does not answer" : state.ErrorText);
  status.Children.emplace_back("tt:UtcTime", TimeText(std::chrono::system_clock::now()));
  return {"tptz:GetStatusResponse", {std::move(status)}};
}

/// Where the camera can be asked and nobody has for a while, it is.
void GetStatus(const Asked& asked) {
  CheckProfile(asked);
  const auto& data = *asked.Camera->Driver().Data;
  const auto state = asked.Camera->State();
  const auto age = std::chrono::steady_clock::now() - state.Position.When;
  const bool isOld = !IsKnown(state.Position) || age > milliseconds(data.PositionLifetime);
  const bool rests = state.Motion == CameraMotion::AtRest || state.Motion == CameraMotion::Unknown;
  if (!isOld || !rests || !state.Connected || state.Link == LinkHealth::Lost ||
      data.Source() != PositionSource::Camera)
    return asked.Answer(Status(asked));
  asked.Camera->Do(asked.Who, ReadPosition(), [asked](const WishOutcome&) { asked.Answer(Status(asked)); });
}

// Moves.

void AbsoluteMove(const Asked& asked) {
  CheckProfile(asked);
  const auto& position = Required(asked.Action, "Position");
  const Spaces spaces(*asked.Camera);
  MoveTo order;
  if (const auto* vector = position.Child("PanTilt")) {
    const auto to = spaces.PanTilt(Kind::Position, *vector);
    order.Pan = static_cast<float>(to.Pan);
    order.Tilt = static_cast<float>(to.Tilt);
  }
  // Clients say 0 of a zoom also where there is none.
  if (const auto* vector = position.Child("Zoom");
      vector != nullptr && (NumberOf(*vector, "x") != 0 || spaces.HasZoom(Kind::Position)))
    order.Zoom = static_cast<float>(spaces.Zoom(Kind::Position, *vector));
  if (!order.Pan && !order.Zoom)
    throw InvalidArgument("ter:InvalidPosition", "Position has neither PanTilt nor Zoom");
  asked.Motions.Do(asked, order, Element("tptz:AbsoluteMoveResponse"));
}

void RelativeMove(const Asked& asked) {
  CheckProfile(asked);
  const auto& translation = Required(asked.Action, "Translation");
  const Spaces spaces(*asked.Camera);
  const auto *head = translation.Child("PanTilt"), *zoom = translation.Child("Zoom");
  if (head == nullptr && zoom == nullptr)
    throw InvalidArgument("ter:InvalidTranslation", "Translation has neither PanTilt nor Zoom");
  // Clients say 0 of what they leave alone, also where there is no such axis.
  MoveBy by;
  if (head != nullptr &&
      (NumberOf(*head, "x") != 0 || NumberOf(*head, "y") != 0 || spaces.HasPanTilt(Kind::Translation))) {
    const auto way = spaces.PanTilt(Kind::Translation, *head);
    by = {static_cast<float>(way.Pan), static_cast<float>(way.Tilt)};
  }
  double zoomBy = 0;
  if (zoom != nullptr && (NumberOf(*zoom, "x") != 0 || spaces.HasZoom(Kind::Translation)))
    zoomBy = spaces.Zoom(Kind::Translation, *zoom);
  const bool turns = by.Pan != 0 || by.Tilt != 0;
  const Element answer("tptz:RelativeMoveResponse");
  if (!turns && zoomBy == 0) return asked.Answer(answer);
  const ZoomBy zooming{zoomBy > 0 ? ZoomIn : ZoomOut, static_cast<float>(std::abs(zoomBy))};
  if (!turns) return asked.Motions.Do(asked, zooming, answer);
  if (zoomBy != 0) asked.Camera->Do(asked.Who, zooming);
  asked.Motions.Do(asked, by, answer);
}

void ContinuousMove(const Asked& asked) {
  CheckProfile(asked);
  const auto& velocity = Required(asked.Action, "Velocity");
  const Spaces spaces(*asked.Camera);
  DriveSpeeds speeds;
  const auto *head = velocity.Child("PanTilt"), *zoom = velocity.Child("Zoom");
  if (head == nullptr && zoom == nullptr)
    throw InvalidArgument("ter:InvalidVelocity", "Velocity has neither PanTilt nor Zoom");
  if (head != nullptr &&
      (NumberOf(*head, "x") != 0 || NumberOf(*head, "y") != 0 || spaces.HasPanTilt(Kind::Velocity))) {
    const auto speed = spaces.PanTilt(Kind::Velocity, *head);
    speeds.PanTilt = {static_cast<float>(speed.Pan), static_cast<float>(speed.Tilt)};
  }
  if (zoom != nullptr && (NumberOf(*zoom, "x") != 0 || spaces.HasZoom(Kind::Velocity)))
    speeds.Zoom = static_cast<float>(spaces.Zoom(Kind::Velocity, *zoom));
  const auto& settings = asked.Site.Settings();
  auto time = DefaultTimeout(settings);
  if (const auto* timeout = asked.Action.Child("Timeout")) {
    const auto duration = ReadDuration(timeout->Text);
    if (!duration) throw Fault("env:Sender", {"ter:InvalidArgVal"}, "Timeout: expected a duration as PT10S");
    if (*duration < ShortestTimeout || *duration > settings.LongestLease)
      throw InvalidArgument("ter:TimeoutNotSupported", "Timeout: expected " + DurationText(ShortestTimeout) +
                                                           " to " + DurationText(settings.LongestLease));
    time = *duration;
  }
  asked.Motions.Drive(asked, speeds, time, Element("tptz:ContinuousMoveResponse"));
}

void StopMove(const Asked& asked) {
  CheckProfile(asked);
  const bool panTilt = BooleanOf(asked.Action, "PanTilt", true), zoom = BooleanOf(asked.Action, "Zoom", true);
  asked.Motions.Stop(asked, panTilt, zoom, Element("tptz:StopResponse"));
}

// Presets and home.

/// Those that somebody has named: of the others nobody knows whether the camera has them.
Element GetPresets(const Asked& asked) {
  CheckProfile(asked);
  Element answer("tptz:GetPresetsResponse");
  if (!HasPresets(*asked.Camera)) return answer;
  for (const auto& preset : asked.Camera->Presets())
    if (preset.HasName)
      answer.Children.push_back(
          Element("tptz:Preset", {Element("tt:Name", preset.Name)}).With("token", preset.Token));
  return answer;
}

/// The preset of a token. Raises `Fault` where there is none.
Preset PresetOf(const Asked& asked, const std::string& token) {
  for (const auto& preset : asked.Camera->Presets())
    if (preset.Token == token) return preset;
  throw InvalidArgument("ter:NoToken", "camera " + asked.Name + " has no preset " + token);
}

void SetPreset(const Asked& asked) {
  CheckProfile(asked);
  if (!HasPresets(*asked.Camera)) throw NotSupported("camera " + asked.Name + " has no presets");
  const auto motion = asked.Camera->State().Motion;
  if (motion == CameraMotion::Driven || motion == CameraMotion::Moving)
    throw Fault("env:Receiver", {"ter:Action", "ter:MovingPTZ"}, "camera " + asked.Name + " is moving");
  const auto token = TextOf(asked.Action, "PresetToken");
  auto name = TextOf(asked.Action, "PresetName");
  const auto presets = asked.Camera->Presets();
  const bool isPlace = asked.Camera->KeepsPlaces();
  auto& saving = asked.Motions.Saving(asked.Name);
  Preset preset;
  if (!token.empty()) {
    preset = PresetOf(asked, token);
  } else if (isPlace) {
    preset.Token = asked.Site.Places().NewToken(asked.Name);
  } else {
    const auto free = std::ranges::find_if(presets, [&](const Preset& one) {
      return one.Number && !one.HasName && !saving.contains(one.Token);
    });
    if (free == presets.end())
      throw Fault("env:Receiver", {"ter:Action", "ter:TooManyPresets"},
                  "camera " + asked.Name + " has no preset left without a name");
    preset = *free;
  }
  if (saving.contains(preset.Token))
    throw Fault("env:Receiver", {"ter:Action"}, "preset " + preset.Token + " is just being saved");
  // What has a name is there for clients to see; a place has one in any case.
  if (name.empty() && !preset.HasName) name = preset.Name;
  for (const auto& other : presets)
    if (!name.empty() && other.HasName && other.Name == name && other.Token != preset.Token)
      throw InvalidArgument("ter:PresetExist",
                            "preset " + other.Token + " has the name " + name + " already");
  asked.Motions.Do(asked, SavePreset{isPlace ? token : preset.Token, name},
                   {"tptz:SetPresetResponse", {Element("tptz:PresetToken", preset.Token)}},
                   [&motions = asked.Motions, camera = asked.Name, saved = preset.Token] {
                     motions.Saving(camera).erase(saved);
                   });
  saving.insert(preset.Token);
}

void GotoPreset(const Asked& asked) {
  CheckProfile(asked);
  const auto preset = PresetOf(asked, Required(asked.Action, "PresetToken").Text);
  asked.Motions.Do(asked, GoToPreset{preset.Token}, Element("tptz:GotoPresetResponse"));
}

void RemovePreset(const Asked& asked) {
  CheckProfile(asked);
  const auto preset = PresetOf(asked, Required(asked.Action, "PresetToken").Text);
  if (!preset.HasName)
    throw InvalidArgument("ter:NoToken",
                          "camera " + asked.Name + " has no preset " + preset.Token + " with a name");
  asked.Motions.Do(asked, ForgetPreset{preset.Token}, Element("tptz:RemovePresetResponse"));
}

void GotoHome(const Asked& asked) {
  CheckProfile(asked);
  if (!HasHome(*asked.Camera))
    throw Fault("env:Receiver", {"ter:Action", "ter:NoHomePosition"},
                "camera " + asked.Name + " has no home");
  asked.Motions.Do(asked, GoHome(), Element("tptz:GotoHomePositionResponse"));
}

void SetHome(const Asked& asked) {
  CheckProfile(asked);
  throw Fault("env:Receiver", {"ter:Action", "ter:CannotOverwriteHome"},
              "the home of camera " + asked.Name + " is the camera's own");
}

constexpr Operation All[] = {
    {"tptz:GetServiceCapabilities", AtOnce<ServiceCapabilities>, true},
    {"tptz:GetNodes", AtOnce<Nodes>},
    {"tptz:GetNode", AtOnce<OneNode>},
    {"tptz:GetConfigurations", AtOnce<Configurations>},
    {"tptz:GetConfiguration", AtOnce<OneConfiguration>},
    {"tptz:GetCompatibleConfigurations", AtOnce<CompatibleConfigurations>},
    {"tptz:GetConfigurationOptions", AtOnce<ConfigurationOptions>},
    {"tptz:GetStatus", GetStatus},
    {"tptz:AbsoluteMove", AbsoluteMove},
    {"tptz:RelativeMove", RelativeMove},
    {"tptz:ContinuousMove", ContinuousMove},
    {"tptz:Stop", StopMove},
    {"tptz:GetPresets", AtOnce<GetPresets>},
    {"tptz:SetPreset", SetPreset},
    {"tptz:GotoPreset", GotoPreset},
    {"tptz:RemovePreset", RemovePreset},
    {"tptz:GotoHomePosition", GotoHome},
    {"tptz:SetHomePosition", SetHome},
};

}  // namespace

Element PTZConfiguration(const GateCamera& camera, const GateSettings& settings, std::string name) {
  Element configuration(std::move(name), {Element("tt:Name", "PTZ of " + camera.Name()),
                                          Element("tt:UseCount", "1"), Element("tt:NodeToken", NodeToken)});
  for (auto& space : Spaces(camera).Defaults()) configuration.Children.push_back(std::move(space));
  configuration.Children.emplace_back("tt:DefaultPTZTimeout", DurationText(DefaultTimeout(settings)));
  return std::move(configuration).With("token", PTZToken);
}

Element PTZCapabilities() {
  return Element("tptz:Capabilities")
      .With("EFlip", "false")
      .With("Reverse", "false")
      .With("GetCompatibleConfigurations", "true")
      .With("MoveStatus", "true")
      .With("StatusPosition", "true");
}

std::span<const Operation> PTZOperations() { return All; }

}  // namespace ptzgate
