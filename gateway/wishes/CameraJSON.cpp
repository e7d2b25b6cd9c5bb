#include "gateway/wishes/CameraJSON.h"

#include <chrono>

namespace ptzgate {

using namespace ptzd;
using nlohmann::json;
using std::chrono::steady_clock;

namespace {

template <typename Duration>
std::int64_t Milliseconds(Duration duration) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(duration).count();
}

json PositionJSON(const CameraPosition& position) {
  if (position.Kind == PositionKind::Unknown) return nullptr;
  json result{{"kind", Name(position.Kind)},
              {"pan", position.Pan},
              {"tilt", position.Tilt},
              {"zoom", nullptr},
              {"age_ms", Milliseconds(steady_clock::now() - position.When)}};
  if (position.Zoom) result["zoom"] = *position.Zoom;
  return result;
}

json RangeJSON(const std::optional<Range>& range) {
  if (!range) return nullptr;
  return {{"least", range->Least}, {"greatest", range->Greatest}, {"unit", range->Unit}};
}

json CanJSON(const GateCamera& camera) {
  const auto flags = camera.CapabilitiesNow();
  const auto& data = *camera.Driver().Data;
  const auto has = [flags](Capabilities all) { return (flags & all) == all; };
  const bool turns = has(CapabilityPan) || has(CapabilityTilt);
  return {{"drive", has(CapabilityContinuousMove) && data.PanSpeed.has_value()},
          {"zoom_drive", has(CapabilityContinuousZoom) && data.ZoomSpeed.has_value()},
          {"move_to", turns && data.PanRange && data.MoveTo != MemberRule::Nothing},
          {"move_by", turns && (data.Move != MemberRule::Nothing || data.MoveBoth != MemberRule::Nothing)},
          {"zoom_to", has(CapabilityFullZoom) && data.ZoomRange.has_value()},
          {"zoom", has(CapabilityZoom) && data.Zoom != MemberRule::Nothing},
          {"iris", has(CapabilityIris)},
          {"iris_auto", has(CapabilityAutoIris)},
          {"focus", has(CapabilityFocus)},
          {"focus_auto", has(CapabilityAutoFocus2)},
          {"presets", has(CapabilityPreset) || has(CapabilityNamedPresets) || camera.KeepsPlaces()},
          {"home", has(CapabilityHome) && data.Home != MemberRule::Nothing}};
}

}  // namespace

std::string TextOf(const json& value) { return value.dump(-1, ' ', false, json::error_handler_t::replace); }

json HolderJSON(const GateCamera& camera, const Client& client) {
  const auto* holder = camera.HeldBy();
  if (holder == nullptr) return nullptr;
  return {{"user", holder->Client.User},
          {"from", holder->Client.From},
          {"face", holder->Client.Face},
          {"mine", holder->Client.Session == client.Session},
          {"left_ms", Milliseconds(holder->Until - steady_clock::now())}};
}

json CameraJSON(Gate& gate, const GateCamera& camera, const Client& client) {
  const auto state = camera.State();
  const auto& description = camera.Description();
  const auto& ranges = camera.RangesNow();
  const auto& settings = gate.Settings();
  const auto role =
      gate.Users().AreThere() ? gate.Users().RoleOf(client.User, camera.Name()) : Role::Administrator;
  json result{{"name", camera.Name()},
              {"driver", camera.Driver().ProgID},
              {"role", Name(role)},
              {"link", Name(state.Link)},
              {"connected", state.Connected},
              {"error", nullptr},
              {"motion", Name(state.Motion)},
              {"position", PositionJSON(state.Position)},
              {"lease_left_ms", nullptr},
              {"queued", state.Queued},
              {"stop_tries", state.StopTries},
              {"holder", HolderJSON(camera, client)},
              {"tour", nullptr},
              {"tours", json::array()},
              {"can", CanJSON(camera)},
              {"ranges",
               {{"pan", RangeJSON(ranges.Pan)},
                {"tilt", RangeJSON(ranges.Tilt)},
                {"zoom", RangeJSON(ranges.Zoom)},
                {"pan_speed", RangeJSON(ranges.PanSpeed)},
                {"tilt_speed", RangeJSON(ranges.TiltSpeed)},
                {"zoom_speed", RangeJSON(ranges.ZoomSpeed)}}},
              {"preset_count", state.Connected ? state.PresetCount : camera.Driver().Data->PresetCount},
              {"version", camera.Version()}};
  if (description.Line.empty())
    result["address"] = description.Address;
  else
    result["line"] = description.Line;
  if (state.ErrorNumber != 0) result["error"] = {{"number", state.ErrorNumber}, {"text", state.ErrorText}};
  if (state.LeaseLeft) result["lease_left_ms"] = state.LeaseLeft->count();
  if (const auto tour = camera.Tour(); !tour.empty()) result["tour"] = tour;
  for (const auto& [name, tour] : settings.Tours)
    if (tour.Camera == camera.Name()) result["tours"].push_back(name);
  const auto picture = settings.Pictures.find(camera.Name());
  const bool has = picture != settings.Pictures.end();
  result["picture"] = {{"snapshot", has && !picture->second.Snapshot.empty()},
                       {"film", has && !picture->second.MJPEG.empty()}};
  return result;
}

const std::string& CameraTexts::For(const Client& client) {
  const auto* holder = Camera_.HeldBy();
  const bool isHolder = holder != nullptr && holder->Client.Session == client.Session;
  auto& text = Texts_[{Gate_.Users().RoleOf(client.User, Camera_.Name()), isHolder}];
  if (text.empty()) text = TextOf(CameraJSON(Gate_, Camera_, client));
  return text;
}

json PresetsJSON(const GateCamera& camera) {
  auto presets = json::array();
  for (const auto& preset : camera.Presets()) {
    json one{{"token", preset.Token}, {"name", preset.Name}, {"number", nullptr}, {"named", preset.HasName}};
    if (preset.Number) one["number"] = *preset.Number;
    presets.push_back(std::move(one));
  }
  return presets;
}

json SeenJSON(const GateCamera& camera) {
  auto exchanges = json::array(), track = json::array();
  for (const auto& seen : camera.Exchanges())
    exchanges.push_back({{"when", TimeText(seen.When)}, {"text", seen.Text}, {"failed", seen.Failed}});
  for (const auto& point : camera.Track())
    track.push_back({{"age_ms", Milliseconds(steady_clock::now() - point.When)},
                     {"pan", point.Pan},
                     {"tilt", point.Tilt}});
  return {{"camera", camera.Name()}, {"exchanges", std::move(exchanges)}, {"track", std::move(track)}};
}

json OutcomeJSON(const WishOutcome& outcome) {
  json result{
      {"result", Name(outcome.Result)}, {"done", IsDone(outcome.Result)}, {"took_ms", outcome.Took.count()}};
  if (!outcome.Text.empty()) result["text"] = outcome.Text;
  if (outcome.StatusCode != 0) result["status_code"] = outcome.StatusCode;
  if (outcome.ErrorNumber != 0)
    result["error"] = {{"number", outcome.ErrorNumber}, {"text", outcome.ErrorText}};
  if (outcome.Tries != 0) result["tries"] = outcome.Tries;
  return result;
}

std::string_view Word(Refusal::Why why) {
  switch (why) {
    case Refusal::Why::Unknown:
      return "unknown";
    case Refusal::Why::Invalid:
      return "invalid";
    case Refusal::Why::NotAllowed:
      return "not-allowed";
    case Refusal::Why::Held:
      return "held";
    case Refusal::Why::Unsupported:
      return "unsupported";
    case Refusal::Why::Exhausted:
      return "exhausted";
    case Refusal::Why::Ending:
      return "ending";
  }
  return "error";
}

json ClientJSON(const Gate& gate, const Client& client) {
  return {{"user", client.User},
          {"anonymous", !gate.Users().AreThere()},
          {"administrator", !gate.Users().AreThere() || gate.Users().IsAdministrator(client.User)}};
}

}  // namespace ptzgate
