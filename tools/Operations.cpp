#include "Operations.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include <ptzd/DriverData.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZDrivers.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>
#include "Connection.h"
#include "Words.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using Json = nlohmann::ordered_json;

Json JsonValue(const Variant& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag;
  if (const auto* number = std::get_if<std::int32_t>(&value)) return *number;
  if (const auto* single = std::get_if<float>(&value)) return AsWritten(*single);
  if (const auto* number = std::get_if<double>(&value)) return *number;
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  return nullptr;
}

std::shared_ptr<const Json> Keep(Json values) { return std::make_shared<const Json>(std::move(values)); }

const char* SourceWord(PositionSource source) {
  switch (source) {
    case PositionSource::Estimate:
      return "estimate";
    case PositionSource::OnConnecting:
      return "on_connecting";
    case PositionSource::BeforeSteps:
      return "before_steps";
    case PositionSource::AboveHorizon:
      return "above_horizon";
    case PositionSource::Camera:
      return "camera";
  }
  return "";
}

const char* KindWord(const PTZOption& option) {
  switch (option.OType()) {
    case OptionInteger:
      return "integer";
    case OptionText:
      return "text";
    case OptionBoolean:
      return "boolean";
    case OptionChoiceIndex:
      return "choice_index";
    case OptionChoiceText:
      return "choice_text";
    default:
      return "other";
  }
}

using Member = std::function<std::optional<bool>(PTZDevice&)>;

/// A member that sends something but moves nothing.
CameraTask Sending(Member member, std::optional<MemberRule> rule) {
  return {.Work = std::move(member), .Rule = rule};
}

/// A member that only the driver answers, or that it answers from what it knows.
CameraTask Asking(Member member) { return {.Work = std::move(member), .Rule = {}, .Sends = false}; }

/// `to` and `by` are the site's, for its limits; what `member` sends is the driver's.
CameraTask Moving(Member member, std::optional<MemberRule> rule, const Arguments& arguments,
                  const CameraPlace& to = {}, const CameraPlace& by = {}) {
  return {.Work = std::move(member),
          .Rule = rule,
          .Moves = true,
          .KnowsTarget = true,
          .To = to,
          .By = by,
          .RestTime = arguments.Wait};
}

/// A move to where only the camera knows.
CameraTask MovingSomewhere(Member member, std::optional<MemberRule> rule, const Arguments& arguments) {
  auto task = Moving(std::move(member), rule, arguments);
  task.KnowsTarget = false;
  return task;
}

/// A member of an interface that a driver may lack, which answers nothing.
template <typename Interface>
Member MemberOf(std::function<void(Interface&)> member) {
  return [member = std::move(member)](PTZDevice& device) -> std::optional<bool> {
    member(dynamic_cast<Interface&>(device));
    return std::nullopt;
  };
}

Outcome HasNone(const Camera& camera, const char* operation, const char* interfaceName) {
  Outcome outcome;
  outcome.Operation = operation;
  outcome.Result = Result::Refused;
  outcome.Became = WishResult::Unsupported;
  outcome.Text = "the driver " + camera.DriverName() + " has no interface " + interfaceName;
  return outcome;
}

template <typename Interface>
Outcome CarryOutOn(Camera& camera, const char* interfaceName, Deed deed) {
  if (!camera.Has<Interface>()) return HasNone(camera, deed.Operation, interfaceName);
  return camera.CarryOut(std::move(deed));
}

Outcome CarryOutOnDevice2(Camera& camera, Deed deed) {
  return CarryOutOn<PTZDevice2>(camera, "PTZDevice2", std::move(deed));
}

const DriverData& Data(const Camera& camera) { return camera.Data(); }

std::string Degrees(float value) {
  return Text(value) + (value == 1 || value == -1 ? " degree" : " degrees");
}

std::string PanTilt(float pan, float tilt) { return "pan " + Text(pan) + ", tilt " + Text(tilt); }

/// By how much a step moves the camera, where its angle is one.
CameraPlace StepOf(Directions direction, float angle) {
  CameraPlace by;
  const auto goes = [&](Directions side) { return (direction & side) != 0; };
  if (goes(DirectionLeft) || goes(DirectionRight)) by.Pan = goes(DirectionLeft) ? -angle : angle;
  if (goes(DirectionUp) || goes(DirectionDown)) by.Tilt = goes(DirectionDown) ? -angle : angle;
  return by;
}

std::int32_t PresetOf(const Camera& camera, const Arguments& arguments) {
  return arguments.PresetName.empty() ? arguments.Preset : camera.PresetNamed(arguments.PresetName);
}

/// "door (1)"
std::string PresetText(std::int32_t number, const Arguments& arguments) {
  return arguments.PresetName.empty() ? Text(number) : arguments.PresetName + " (" + Text(number) + ")";
}

const char* BeyondWord(Beyond beyond) {
  switch (beyond) {
    case Beyond::SignOnly:
      return "sign_only";
    case Beyond::Limited:
      return "limited";
    case Beyond::GoesAround:
      return "goes_around";
    case Beyond::PassedOn:
      return "passed_on";
    case Beyond::Overflows:
      return "overflows";
  }
  return "";
}

const char* MovementWord(ConnectMovement movement) {
  switch (movement) {
    case ConnectMovement::Never:
      return "never";
    case ConnectMovement::OnSomeModels:
      return "on_some_models";
    case ConnectMovement::OnEveryModel:
      return "on_every_model";
  }
  return "";
}

/// Adds what is the same for every camera of a driver.
void AddDriverFacts(Json& values, const DriverData& data) {
  const std::pair<const char*, const std::optional<ValueRange>&> ranges[] = {
      {"pan", data.PanRange},       {"tilt", data.TiltRange},       {"zoom", data.ZoomRange},
      {"pan_speed", data.PanSpeed}, {"tilt_speed", data.TiltSpeed}, {"zoom_speed", data.ZoomSpeed}};
  const auto end = [](double value) { return std::isfinite(value) ? Json(Val(Text(value))) : Json(); };
  auto rows = Json::array();
  for (const auto& [name, range] : ranges)
    if (range)
      rows.push_back({{"name", name},
                      {"least", end(range->Least)},
                      {"greatest", end(range->Greatest)},
                      {"unit", range->Ends == Beyond::SignOnly ? Json() : Json(range->Unit)},
                      {"beyond", BeyondWord(range->Ends)},
                      {"depends_on_model", range->DependsOnModel}});
  values["ranges"] = std::move(rows);
  values["asks_to_connect"] = data.AsksToConnect;
  values["connects_unheard"] = data.ConnectsUnheard;
  values["moves_to_connect"] = MovementWord(data.MovesToConnect);
  if (data.PanSpeed) values["stops_by_speed_zero"] = data.StopsBySpeedZero;
}

}  // namespace

Outcome ListDrivers() {
  Outcome outcome;
  outcome.Operation = "drivers";
  auto rows = Json::array();
  const PTZDrivers catalogue;
  for (std::int32_t position = 1; position <= catalogue.Count(); ++position) {
    const auto entry = catalogue.Item(position);
    rows.push_back({{"position", position},
                    {"class", entry->Class()},
                    {"name", entry->Name()},
                    {"available", FindDriverClass(entry->Class()) != nullptr}});
  }
  outcome.Values = Keep({{"drivers", std::move(rows)}});
  return outcome;
}

Outcome ListOptions(const DriverClass& driver) {
  const auto table = [](const std::vector<PTZOption>& options) {
    auto rows = Json::array();
    for (const auto& option : options) {
      auto values = Json::array();
      for (const auto& value : option.Values()) values.push_back(JsonValue(value));
      rows.push_back({{"name", option.Name()},
                      {"kind", KindWord(option)},
                      {"default", JsonValue(option.Default())},
                      {"description", option.Description()},
                      {"type", option.OType()},
                      {"values", std::move(values)}});
    }
    return rows;
  };
  Outcome outcome;
  outcome.Operation = "options";
  Json values = {{"driver", driver.ProgID},
                 {"options", table(DescribedOptions(driver))},
                 {"common_options", table(CommonOptions(driver))}};
  AddDriverFacts(values, *driver.Data);
  outcome.Values = Keep(std::move(values));
  return outcome;
}

Outcome Info(Camera& camera, const Arguments&) {
  const auto state = camera.State();
  auto interfaces = Json::array({"PTZDevice"});
  const auto add = [&](const char* name, bool there) {
    if (there) interfaces.push_back(name);
  };
  add("PTZDevice2", camera.Has<PTZDevice2>());
  add("PTZContinuousControl", camera.Has<PTZContinuousControl>());
  add("PTZOptions", camera.Has<PTZOptions>());
  add("PTZNamedPresets", camera.Has<PTZNamedPresets>());
  add("PTZMoveInImage", camera.Has<PTZMoveInImage>());
  Outcome outcome;
  outcome.Operation = "info";
  Json values = {{"driver", camera.Driver().ProgID},
                 {"address", camera.Address()},
                 {"link", Identifier(Name(state.Link))},
                 {"capabilities", CapabilityWordsOf(state.Capabilities)},
                 {"capability_flags", static_cast<std::int32_t>(state.Capabilities)},
                 {"interfaces", std::move(interfaces)},
                 {"numbered_presets", state.PresetCount},
                 {"position_source", SourceWord(Data(camera).Source())}};
  AddDriverFacts(values, Data(camera));
  outcome.Values = Keep(std::move(values));
  outcome.Position = camera.Position();
  return outcome;
}

Outcome ShowPosition(Camera& camera, const Arguments&) { return camera.ReadPosition(); }

Outcome ShowConnected(Camera& camera, const Arguments&) {
  const auto state = camera.State();
  Outcome outcome;
  outcome.Operation = "connected";
  outcome.Values = Keep({{"connected", state.Connected}, {"link", Identifier(Name(state.Link))}});
  return outcome;
}

Outcome Watch(Camera& camera, const Arguments& arguments) {
  using std::chrono::steady_clock;
  const auto until =
      arguments.Duration ? steady_clock::now() + *arguments.Duration : steady_clock::time_point::max();
  std::optional<CameraPosition> last;
  while (true) {
    auto seen = camera.ReadPosition();
    seen.Operation = "watch";
    if (seen.Result == Result::Done && seen.Position->Kind != PositionKind::Read) {
      seen.Result = Result::Refused;
      seen.Text = "this camera cannot tell where it is";
    }
    if (seen.Result != Result::Done) return seen;
    const auto& at = *seen.Position;
    const bool isNew = !last || last->Pan != at.Pan || last->Tilt != at.Tilt || last->Zoom != at.Zoom;
    last = at;
    if (isNew && !camera.Tell(seen)) return seen;
    if (steady_clock::now() >= until) {
      seen.Exchanges.clear();
      seen.Text = "Watched for " + Seconds(*arguments.Duration);
      return seen;
    }
    camera.Ending().Sleep(std::chrono::milliseconds(Data(camera).PositionPace));
  }
}

Outcome Connect(Camera& camera, const Arguments& arguments) {
  if (arguments.Device2 && !camera.Has<PTZDevice2>()) return HasNone(camera, "connect", "PTZDevice2");
  return camera.Connect();  // which is one member for both
}

Outcome Disconnect(Camera& camera, const Arguments& arguments) {
  if (arguments.Device2 && !camera.Has<PTZDevice2>()) return HasNone(camera, "disconnect", "PTZDevice2");
  return camera.Disconnect();  // whose answers differ, and nothing else
}

Outcome Move(Camera& camera, const Arguments& arguments) {
  constexpr float usual = 5;  // the interface's own default
  const auto direction = arguments.Direction;
  const auto angle = arguments.Angle.value_or(usual);
  const auto what = "Move " + DirectionText(direction) + " by " + Degrees(angle);
  const auto by = StepOf(direction, angle);
  const auto turned = camera.Site().Turned(direction);
  if (arguments.Device2)
    return CarryOutOnDevice2(camera, {"move", what,
                                      Moving(MemberOf<PTZDevice2>([=](auto& d) { d.Move(turned, angle); }),
                                             {}, arguments, {}, by)});
  return camera.CarryOut({"move", what,
                          Moving([=](PTZDevice& d) { return std::optional(d.Move(turned, angle)); },
                                 Data(camera).Move, arguments, {}, by)});
}

Outcome MoveBy(Camera& camera, const Arguments& arguments) {
  const CameraPlace by{arguments.Pan, arguments.Tilt};
  const auto pan = camera.Site().Pan(arguments.Pan), tilt = camera.Site().Tilt(arguments.Tilt);
  const auto what = "Move by " + PanTilt(arguments.Pan, arguments.Tilt);
  if (arguments.Device2)
    return CarryOutOnDevice2(camera, {"move-by", what,
                                      Moving(MemberOf<PTZDevice2>([=](auto& d) { d.MoveBoth(pan, tilt); }),
                                             {}, arguments, {}, by)});
  return camera.CarryOut({"move-by", what,
                          Moving([=](PTZDevice& d) { return std::optional(d.MoveBoth(pan, tilt)); },
                                 Data(camera).MoveBoth, arguments, {}, by)});
}

Outcome MoveTo(Camera& camera, const Arguments& arguments) {
  const CameraPlace to{arguments.Pan, arguments.Tilt, arguments.Zoom};
  const auto pan = camera.Site().Pan(arguments.Pan), tilt = camera.Site().Tilt(arguments.Tilt);
  const auto what = "Move to " + PanTilt(arguments.Pan, arguments.Tilt);
  if (!arguments.Zoom)
    return camera.CarryOut({"move-to", what,
                            Moving([=](PTZDevice& d) { return std::optional(d.MoveTo(pan, tilt)); },
                                   Data(camera).MoveTo, arguments, to)});
  const auto zoom = *arguments.Zoom;
  return CarryOutOnDevice2(
      camera, {"move-to", what + ", zoom " + Text(zoom),
               Moving(MemberOf<PTZDevice2>([=](auto& d) { d.MoveTo(pan, tilt, zoom); }), {}, arguments, to)});
}

Outcome Zoom(Camera& camera, const Arguments& arguments) {
  const auto direction = arguments.ZoomDirection;
  const auto amount = arguments.ZoomAmount;
  const auto what =
      std::string(direction == ZoomIn ? "Zoom in" : "Zoom out") + (amount ? " by " + Text(*amount) : "");
  const auto step = amount.value_or(ZoomStepAmount);
  const CameraPlace by{.Zoom = direction == ZoomOut ? -step : step};
  if (!amount && !arguments.Device2)
    return camera.CarryOut({"zoom", what,
                            Moving([=](PTZDevice& d) { return std::optional(d.Zoom(direction)); },
                                   Data(camera).Zoom, arguments, {}, by),
                            CapabilityZoom});
  const auto zoom = [=](PTZDevice2& d) { d.Zoom(direction, step); };
  return CarryOutOnDevice2(
      camera, {"zoom", what, Moving(MemberOf<PTZDevice2>(zoom), {}, arguments, {}, by), CapabilityZoom});
}

Outcome ZoomTo(Camera& camera, const Arguments& arguments) {
  const auto zoom = arguments.Amount;
  return CarryOutOnDevice2(
      camera, {"zoom-to", "Zoom to " + Text(zoom),
               Moving(MemberOf<PTZDevice2>([=](auto& d) { d.ZoomTo(zoom); }), {}, arguments, {.Zoom = zoom}),
               CapabilityFullZoom});
}

Outcome Iris(Camera& camera, const Arguments& arguments) {
  const auto level = arguments.IrisLevel;
  const char* what = level == IrisOpen    ? "Open the iris"
                     : level == IrisClose ? "Close the iris"
                                          : "Set the iris to automatic";
  return camera.CarryOut(
      {"iris", what, Sending([=](PTZDevice& d) { return std::optional(d.Iris(level)); }, Data(camera).Iris),
       level == IrisAuto ? CapabilityAutoIris : CapabilityIris});
}

Outcome Focus(Camera& camera, const Arguments& arguments) {
  const auto level = arguments.FocusLevel;
  const char* what = level == FocusNear  ? "Focus nearer"
                     : level == FocusFar ? "Focus farther"
                                         : "Set the focus to automatic";
  return camera.CarryOut(
      {"focus", what,
       Sending([=](PTZDevice& d) { return std::optional(d.Focus(level)); }, Data(camera).Focus),
       level == FocusAuto ? CapabilityAutoFocus2 : CapabilityFocus});
}

Outcome Home(Camera& camera, const Arguments& arguments) {
  return camera.CarryOut(
      {"home", "Go home",
       MovingSomewhere([](PTZDevice& d) { return std::optional(d.Home()); }, Data(camera).Home, arguments),
       CapabilityHome});
}

Outcome SetPosition(Camera& camera, const Arguments& arguments) {
  return camera.SetPosition(
      arguments.Pan, arguments.Tilt,
      "Told the driver that the camera is at " + PanTilt(arguments.Pan, arguments.Tilt));
}

Outcome PresetCount(Camera& camera, const Arguments&) {
  const auto count = std::make_shared<std::int32_t>();  // a task may outlive this
  auto outcome = camera.CarryOut({"preset count", "", Asking([count](PTZDevice& d) -> std::optional<bool> {
                                    *count = d.PresetCount();
                                    return std::nullopt;
                                  })});
  if (outcome.Result == Result::Done) outcome.Values = Keep({{"numbered_presets", *count}});
  return outcome;
}

Outcome PresetGoto(Camera& camera, const Arguments& arguments) {
  const auto preset = PresetOf(camera, arguments);
  return camera.CarryOut({"preset goto", "Go to preset " + PresetText(preset, arguments),
                          MovingSomewhere([=](PTZDevice& d) { return std::optional(d.PresetGoto(preset)); },
                                          Data(camera).PresetGoto, arguments),
                          CapabilityPreset});
}

Outcome PresetSave(Camera& camera, const Arguments& arguments) {
  const auto preset = PresetOf(camera, arguments);
  return camera.CarryOut(
      {"preset save", "Save as preset " + PresetText(preset, arguments),
       Sending([=](PTZDevice& d) { return std::optional(d.PresetSave(preset)); }, Data(camera).PresetSave),
       CapabilityPreset});
}

Outcome PresetList(Camera& camera, const Arguments&) {
  const auto rows = std::make_shared<Json>(Json::array());  // a task may outlive this
  auto outcome = CarryOutOn<PTZNamedPresets>(
      camera, "PTZNamedPresets",
      {"preset list", "", Asking(MemberOf<PTZNamedPresets>([rows](auto& presets) {
         for (const auto& preset : presets.GetNamedPresets())
           rows->push_back({{"index", preset.Index()}, {"id", preset.ID()}, {"name", preset.Name()}});
       }))});
  if (outcome.Result == Result::Done) outcome.Values = Keep({{"named_presets", std::move(*rows)}});
  return outcome;
}

Outcome PresetGotoNamed(Camera& camera, const Arguments& arguments) {
  const auto go = [id = arguments.ID](PTZNamedPresets& presets) { presets.GotoNamedPreset(id); };
  return CarryOutOn<PTZNamedPresets>(
      camera, "PTZNamedPresets",
      {"preset goto-named", "Go to preset " + arguments.ID,
       MovingSomewhere(MemberOf<PTZNamedPresets>(go), {}, arguments), CapabilityNamedPresets});
}

Outcome MoveInImage(Camera& camera, const Arguments& arguments) {
  const auto move = [=](PTZMoveInImage& mover) {
    mover.MoveInImage(arguments.X, arguments.Y, arguments.Width, arguments.Height);
  };
  return CarryOutOn<PTZMoveInImage>(
      camera, "PTZMoveInImage",
      {"move-in-image", "Centre on " + Text(arguments.X) + ", " + Text(arguments.Y),
       MovingSomewhere(MemberOf<PTZMoveInImage>(move), {}, arguments), CapabilityMoveInImage});
}

Outcome Continuous(Camera& camera, const Arguments& arguments) {
  auto what = "Move at speed " + PanTilt(arguments.Pan, arguments.Tilt);
  if (arguments.Zoom) what += ", zoom " + Text(*arguments.Zoom);
  return camera.Drive({"continuous", what, {}, CapabilityContinuousMove},
                      {DriveSpeeds::Head{arguments.Pan, arguments.Tilt}, arguments.Zoom}, arguments.Duration,
                      arguments.Leave);
}

Outcome ContinuousZoom(Camera& camera, const Arguments& arguments) {
  return camera.Drive(
      {"continuous-zoom", "Zoom at speed " + Text(arguments.Amount), {}, CapabilityContinuousZoom},
      {std::nullopt, arguments.Amount}, arguments.Duration, arguments.Leave);
}

Outcome Stop(Camera& camera, const Arguments&) { return camera.Stop(); }

Outcome Wait(Camera& camera, const Arguments& arguments) {
  Outcome outcome;
  outcome.Operation = "wait";
  outcome.Text = "Waited " + Seconds(*arguments.Duration);
  if (!camera.Ending().Sleep(*arguments.Duration)) {
    outcome.Result = Result::Interrupted;
    outcome.Signal = camera.Ending().Signal();
    outcome.Text = "interrupted";
  }
  return outcome;
}

}  // namespace ptzctl
