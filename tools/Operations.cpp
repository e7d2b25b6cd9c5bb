#include "Operations.h"

#include <algorithm>
#include <cmath>
#include <exception>
#include <nlohmann/json.hpp>
#include <utility>
#include <vector>

#include <ptzd/DriverData.h>
#include <ptzd/Error.h>
#include <ptzd/PTZContinuousControl.h>
#include <ptzd/PTZDevice2.h>
#include <ptzd/PTZDrivers.h>
#include <ptzd/PTZMoveInImage.h>
#include <ptzd/PTZNamedPresets.h>
#include <ptzd/PTZOptions.h>
#include "Connection.h"
#include "Interrupt.h"
#include "Words.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;
using Json = nlohmann::ordered_json;

/// The number that the decimal text of a single spells, so that it prints as people wrote it.
Json JsonNumber(float value) { return Val(Text(value)); }

Json JsonValue(const Variant& value) {
  if (const auto* flag = std::get_if<bool>(&value)) return *flag;
  if (const auto* number = std::get_if<std::int32_t>(&value)) return *number;
  if (const auto* single = std::get_if<float>(&value)) return JsonNumber(*single);
  if (const auto* number = std::get_if<double>(&value)) return *number;
  if (const auto* text = std::get_if<std::string>(&value)) return *text;
  return nullptr;
}

std::shared_ptr<const Json> Keep(Json values) { return std::make_shared<const Json>(std::move(values)); }

enum class Shown { Nothing, After, BeforeAndAfter };

/// What an operation is and how it is judged.
struct Deed {
  const char* Operation;
  std::string Done;                ///< in words, for when it worked
  std::optional<MemberRule> Rule;  ///< of a member that answers True or False
  Shown Position = Shown::Nothing;
  std::int32_t Needs = 0;  ///< the capability that a camera should claim
};

using Member = std::function<std::optional<bool>()>;

const char* PositionText(PositionSource source) {
  switch (source) {
    case PositionSource::Estimate:
      return "estimated";
    case PositionSource::OnConnecting:
      return "read from the camera on connecting, then estimated";
    case PositionSource::BeforeSteps:
      return "read from the camera on connecting and before steps, else estimated";
    case PositionSource::AboveHorizon:
      return "read from the camera, of tilts above the horizon";
    case PositionSource::Camera:
      return "read from the camera";
  }
  return "";
}

void Fail(Outcome& outcome, const Error& error) {
  outcome.Result = Result::Error;
  outcome.ErrorNumber = error.Number();
  outcome.ErrorText = error.Description();
  outcome.Text = std::to_string(error.Number()) + " " + error.Description();
}

/// The first failure among the requests since the last call, all of which go to the outcome.
std::string TakeRequests(Camera& camera, Outcome& outcome) {
  std::string failure;
  for (auto& request : camera.Log().Take()) {
    if (failure.empty()) failure = request.Failure;
    outcome.Requests.push_back(std::move(request));
  }
  return failure;
}

/// Nothing where the camera could not be asked; each further question would only wait for it again.
std::optional<Position> ReadPosition(Camera& camera, Outcome& outcome) {
  const auto source = camera.Driver().Data->Source();
  outcome.PositionIsEstimated = source != PositionSource::Camera && source != PositionSource::AboveHorizon;
  Position position;
  try {
    position.Pan = camera.Device().Pan();
    if (auto failure = TakeRequests(camera, outcome); !failure.empty()) {
      outcome.Notes.push_back("the position could not be read: " + failure);
      return std::nullopt;
    }
    position.Tilt = camera.Device().Tilt();
    if (auto* device2 = camera.As<PTZDevice2>()) position.Zoom = device2->ZoomLevel();
  } catch (const Error& error) {
    outcome.Notes.push_back("the position could not be read: " + std::to_string(error.Number()) + " " +
                            error.Description());
    TakeRequests(camera, outcome);
    return std::nullopt;
  }
  TakeRequests(camera, outcome);
  return position;
}

void Judge(Outcome& outcome, const Deed& deed, const Camera& camera, bool connected, bool asked,
           const std::string& failure) {
  const auto refuse = [&outcome](std::string why) {
    outcome.Result = Result::Refused;
    outcome.Text = std::move(why);
  };
  if (deed.Rule == MemberRule::Nothing)
    return refuse("the driver " + camera.DriverName() + " does nothing for this");
  if (!failure.empty()) return refuse(failure);
  const bool passesOn =
      deed.Rule && (*deed.Rule == MemberRule::Outcome || *deed.Rule == MemberRule::OutcomeIfConnected);
  if (passesOn ? *outcome.Answer : connected || asked) return;
  if (!connected) return refuse("the driver is not connected");
  refuse(asked ? "the camera refused" : "the driver answered False; it or this camera does not do that");
}

Outcome CarryOut(Camera& camera, const Deed& deed, const Member& member) {
  Outcome outcome;
  outcome.Operation = deed.Operation;
  outcome.Text = deed.Done;
  auto& device = camera.Device();
  camera.Log().Take();
  try {
    const bool connected = device.Connected();
    if (connected && deed.Needs != 0 && (device.Capabilities() & deed.Needs) != deed.Needs)
      outcome.Notes.push_back("the camera does not claim: " +
                              CapabilityText(static_cast<ptzd::Capabilities>(deed.Needs)));
    if (connected && deed.Position == Shown::BeforeAndAfter) outcome.Before = ReadPosition(camera, outcome);
    const auto before = outcome.Requests.size();
    outcome.Answer = member();
    const auto failure = TakeRequests(camera, outcome);
    Judge(outcome, deed, camera, connected, outcome.Requests.size() > before, failure);
    if (connected && deed.Position != Shown::Nothing && failure.empty())
      outcome.After = ReadPosition(camera, outcome);
  } catch (const Error& error) {
    TakeRequests(camera, outcome);
    Fail(outcome, error);
  }
  return outcome;
}

/// For members of an interface that a driver may lack.
template <typename Interface>
Outcome CarryOutOn(Camera& camera, const char* interfaceName, const Deed& deed,
                   const std::function<void(Interface&)>& member) {
  if (auto* interface = camera.As<Interface>()) {
    return CarryOut(camera, deed, [&] {
      member(*interface);
      return std::nullopt;
    });
  }
  Outcome outcome;
  outcome.Operation = deed.Operation;
  outcome.Result = Result::Refused;
  outcome.Text = "the driver " + camera.DriverName() + " has no interface " + interfaceName;
  return outcome;
}

Outcome CarryOutOnDevice2(Camera& camera, const Deed& deed, const std::function<void(PTZDevice2&)>& member) {
  return CarryOutOn<PTZDevice2>(camera, "PTZDevice2", deed, member);
}

const DriverData& Data(const Camera& camera) { return *camera.Driver().Data; }

std::string Degrees(float value) {
  return Text(value) + (value == 1 || value == -1 ? " degree" : " degrees");
}

std::string PanTilt(float pan, float tilt) { return "pan " + Text(pan) + ", tilt " + Text(tilt); }

std::string Seconds(std::chrono::milliseconds time) {
  return Text(static_cast<double>(time.count()) / 1000) + " s";
}

/// Not by `StopContinuous`, which on most makes does these two and on Sony nothing.
void StopMotion(PTZContinuousControl& control) {
  control.ContinuousMove(0, 0);
  control.ContinuousZoom(0);
}

/// Begins a motion and, with a duration, ends it whatever came in between.
void Run(Camera& camera, PTZContinuousControl& control, const Arguments& arguments, bool moves,
         const std::function<void()>& begin) {
  CatchInterrupts();
  std::exception_ptr problem;
  try {
    camera.InMotion = camera.InMotion || moves;
    begin();
    if (arguments.Duration && !camera.Log().HasFailure()) SleepUnlessInterrupted(*arguments.Duration);
  } catch (...) {
    problem = std::current_exception();
  }
  if (arguments.Duration || (camera.InMotion && Interrupted())) {
    StopMotion(control);
    camera.InMotion = false;
  }
  if (!camera.InMotion) ReleaseInterrupts();
  if (problem) std::rethrow_exception(problem);
}

constexpr char MayMove[] = "the camera may still be moving";

const char* BeyondText(Beyond beyond) {
  switch (beyond) {
    case Beyond::SignOnly:
      return "sign only";
    case Beyond::Limited:
      return "limited";
    case Beyond::GoesAround:
      return "goes around";
    case Beyond::PassedOn:
      return "passed on";
    case Beyond::Overflows:
      return "overflows";
  }
  return "";
}

const char* MovementText(ConnectMovement movement) {
  switch (movement) {
    case ConnectMovement::Never:
      return "never";
    case ConnectMovement::OnSomeModels:
      return "on some models";
    case ConnectMovement::OnEveryModel:
      return "on every model";
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
                      {"beyond", BeyondText(range->Ends)},
                      {"depends_on_model", range->DependsOnModel}});
  values["ranges"] = std::move(rows);
  values["asks_to_connect"] = data.AsksToConnect;
  values["connects_unheard"] = data.ConnectsUnheard;
  values["moves_to_connect"] = MovementText(data.MovesToConnect);
  if (data.PanSpeed) values["stops_by_speed_zero"] = data.StopsBySpeedZero;
}

Outcome Described(Outcome outcome, const Arguments& arguments) {
  if (outcome.Result != Result::Done) {
    if (!outcome.Requests.empty()) outcome.Notes.emplace_back(MayMove);
    return outcome;
  }
  if (Interrupted()) {
    outcome.Result = Result::Interrupted;
    outcome.Text += "; interrupted, stopped";
  } else if (arguments.Duration) {
    outcome.Text += " for " + Seconds(*arguments.Duration) + ", then stopped";
  } else {
    outcome.Text += " until told to stop";
  }
  return outcome;
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
                      {"kind", KindText(option)},
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
  Json values;
  auto outcome = CarryOut(camera, {"info", "", {}, Shown::After}, [&] {
    auto& device = camera.Device();
    const std::int32_t capabilities = device.Capabilities();
    auto interfaces = Json::array({"PTZDevice"});
    const auto add = [&](const char* name, bool there) {
      if (there) interfaces.push_back(name);
    };
    add("PTZDevice2", camera.As<PTZDevice2>() != nullptr);
    add("PTZContinuousControl", camera.As<PTZContinuousControl>() != nullptr);
    add("PTZOptions", camera.As<PTZOptions>() != nullptr);
    add("PTZNamedPresets", camera.As<PTZNamedPresets>() != nullptr);
    add("PTZMoveInImage", camera.As<PTZMoveInImage>() != nullptr);
    values = {{"driver", camera.Driver().ProgID},
              {"address", camera.Address()},
              {"connected", device.Connected()},
              {"can_do", CapabilityTexts(capabilities)},
              {"capabilities", capabilities},
              {"interfaces", std::move(interfaces)},
              {"numbered_presets", device.PresetCount()},
              {"position", PositionText(Data(camera).Source())}};
    AddDriverFacts(values, Data(camera));
    return std::optional(true);
  });
  outcome.Answer.reset();
  outcome.Values = Keep(std::move(values));
  return outcome;
}

Outcome ShowPosition(Camera& camera, const Arguments&) {
  auto outcome = CarryOut(camera, {"position", "", {}, Shown::After}, [] { return std::nullopt; });
  if (outcome.Result == Result::Done && !outcome.After) {
    outcome.Result = Result::Refused;
    outcome.Text = outcome.Notes.empty() ? "the driver is not connected" : outcome.Notes.back();
    outcome.Notes.clear();
  }
  return outcome;
}

Outcome ShowConnected(Camera& camera, const Arguments&) {
  Outcome outcome;
  outcome.Operation = "connected";
  outcome.Values = Keep({{"connected", camera.Device().Connected()}});
  return outcome;
}

Outcome Connect(Camera& camera, const Arguments& arguments) { return camera.Connect(arguments.Device2); }

Outcome Disconnect(Camera& camera, const Arguments& arguments) {
  if (arguments.Device2) {
    auto outcome = CarryOutOnDevice2(camera, {"disconnect", "Disconnected", {}},
                                     [](PTZDevice2& device) { device.Disconnect(); });
    if (!outcome.Requests.empty() || outcome.ErrorNumber || camera.Device().Connected()) return outcome;
    outcome.Result = Result::Done;
    outcome.Text = "Disconnected";
    return outcome;
  }
  Outcome outcome;
  outcome.Operation = "disconnect";
  camera.Log().Take();
  try {
    const auto answer = camera.Device().Disconnect();
    if (const auto* flag = std::get_if<bool>(&answer)) outcome.Answer = *flag;
    outcome.Text = "Disconnected";
  } catch (const Error& error) {
    Fail(outcome, error);
  }
  TakeRequests(camera, outcome);
  return outcome;
}

Outcome Move(Camera& camera, const Arguments& arguments) {
  constexpr float usual = 5;  // the interface's own default
  Deed deed{"move",
            "Moved " + DirectionText(arguments.Direction) + " by " + Degrees(arguments.Angle.value_or(usual)),
            Data(camera).Move, Shown::BeforeAndAfter};
  const auto move = [&](auto& device) {
    return arguments.Angle ? device.Move(arguments.Direction, *arguments.Angle)
                           : device.Move(arguments.Direction);
  };
  if (!arguments.Device2) return CarryOut(camera, deed, [&] { return move(camera.Device()); });
  deed.Rule.reset();
  return CarryOutOnDevice2(camera, deed, move);
}

Outcome MoveBy(Camera& camera, const Arguments& arguments) {
  Deed deed{"move-by", "Moved by " + PanTilt(arguments.Pan, arguments.Tilt), Data(camera).MoveBoth,
            Shown::BeforeAndAfter};
  if (!arguments.Device2)
    return CarryOut(camera, deed, [&] { return camera.Device().MoveBoth(arguments.Pan, arguments.Tilt); });
  deed.Rule.reset();
  return CarryOutOnDevice2(camera, deed,
                           [&](PTZDevice2& device) { device.MoveBoth(arguments.Pan, arguments.Tilt); });
}

Outcome MoveTo(Camera& camera, const Arguments& arguments) {
  Deed deed{"move-to", "Sent to " + PanTilt(arguments.Pan, arguments.Tilt), Data(camera).MoveTo,
            Shown::BeforeAndAfter};
  if (!arguments.Zoom)
    return CarryOut(camera, deed, [&] { return camera.Device().MoveTo(arguments.Pan, arguments.Tilt); });
  deed.Rule.reset();
  deed.Done += ", zoom " + Text(*arguments.Zoom);
  return CarryOutOnDevice2(camera, deed, [&](PTZDevice2& device) {
    device.MoveTo(arguments.Pan, arguments.Tilt, *arguments.Zoom);
  });
}

Outcome Zoom(Camera& camera, const Arguments& arguments) {
  Deed deed{"zoom", arguments.ZoomDirection == ZoomIn ? "Zoomed in" : "Zoomed out", Data(camera).Zoom,
            Shown::BeforeAndAfter, CapabilityZoom};
  if (!arguments.ZoomAmount && !arguments.Device2)
    return CarryOut(camera, deed, [&] { return camera.Device().Zoom(arguments.ZoomDirection); });
  deed.Rule.reset();
  if (arguments.ZoomAmount) deed.Done += " by " + Text(*arguments.ZoomAmount);
  return CarryOutOnDevice2(camera, deed, [&](PTZDevice2& device) {
    if (arguments.ZoomAmount)
      device.Zoom(arguments.ZoomDirection, *arguments.ZoomAmount);
    else
      device.Zoom(arguments.ZoomDirection);
  });
}

Outcome ZoomTo(Camera& camera, const Arguments& arguments) {
  return CarryOutOnDevice2(
      camera,
      {"zoom-to", "Zoomed to " + Text(arguments.Amount), {}, Shown::BeforeAndAfter, CapabilityFullZoom},
      [&](PTZDevice2& device) { device.ZoomTo(arguments.Amount); });
}

Outcome Iris(Camera& camera, const Arguments& arguments) {
  const char* done = arguments.IrisLevel == IrisOpen    ? "Opened the iris"
                     : arguments.IrisLevel == IrisClose ? "Closed the iris"
                                                        : "Set the iris to automatic";
  const auto needs = arguments.IrisLevel == IrisAuto ? CapabilityAutoIris : CapabilityIris;
  return CarryOut(camera, {"iris", done, Data(camera).Iris, Shown::Nothing, needs},
                  [&] { return camera.Device().Iris(arguments.IrisLevel); });
}

Outcome Focus(Camera& camera, const Arguments& arguments) {
  const char* done = arguments.FocusLevel == FocusNear  ? "Focused nearer"
                     : arguments.FocusLevel == FocusFar ? "Focused farther"
                                                        : "Set the focus to automatic";
  const auto needs = arguments.FocusLevel == FocusAuto ? CapabilityAutoFocus2 : CapabilityFocus;
  return CarryOut(camera, {"focus", done, Data(camera).Focus, Shown::Nothing, needs},
                  [&] { return camera.Device().Focus(arguments.FocusLevel); });
}

Outcome Home(Camera& camera, const Arguments&) {
  return CarryOut(camera, {"home", "Went home", Data(camera).Home, Shown::BeforeAndAfter, CapabilityHome},
                  [&] { return camera.Device().Home(); });
}

Outcome SetPosition(Camera& camera, const Arguments& arguments) {
  return CarryOut(camera,
                  {"set-position",
                   "Told the driver that the camera is at " + PanTilt(arguments.Pan, arguments.Tilt),
                   {},
                   Shown::BeforeAndAfter},
                  [&] {
                    camera.Device().SetPanTilt(arguments.Pan, arguments.Tilt);
                    return std::nullopt;
                  });
}

Outcome PresetCount(Camera& camera, const Arguments&) {
  std::int32_t count = 0;
  auto outcome = CarryOut(camera, {"preset count", "", {}}, [&] {
    count = camera.Device().PresetCount();
    return std::optional(true);
  });
  outcome.Answer.reset();
  outcome.Values = Keep({{"numbered_presets", count}});
  return outcome;
}

Outcome PresetGoto(Camera& camera, const Arguments& arguments) {
  return CarryOut(camera,
                  {"preset goto", "Sent to preset " + Text(arguments.Preset), Data(camera).PresetGoto,
                   Shown::Nothing, CapabilityPreset},
                  [&] { return camera.Device().PresetGoto(arguments.Preset); });
}

Outcome PresetSave(Camera& camera, const Arguments& arguments) {
  return CarryOut(camera,
                  {"preset save", "Saved as preset " + Text(arguments.Preset), Data(camera).PresetSave,
                   Shown::Nothing, CapabilityPreset},
                  [&] { return camera.Device().PresetSave(arguments.Preset); });
}

Outcome PresetList(Camera& camera, const Arguments&) {
  auto rows = Json::array();
  auto outcome = CarryOutOn<PTZNamedPresets>(
      camera, "PTZNamedPresets", {"preset list", "", {}}, [&](PTZNamedPresets& presets) {
        for (const auto& preset : presets.GetNamedPresets())
          rows.push_back({{"index", preset.Index()}, {"id", preset.ID()}, {"name", preset.Name()}});
      });
  if (outcome.Result == Result::Done) outcome.Values = Keep({{"named_presets", std::move(rows)}});
  return outcome;
}

Outcome PresetGotoNamed(Camera& camera, const Arguments& arguments) {
  return CarryOutOn<PTZNamedPresets>(
      camera, "PTZNamedPresets",
      {"preset goto-named", "Sent to preset " + arguments.ID, {}, Shown::Nothing, CapabilityNamedPresets},
      [&](PTZNamedPresets& presets) { presets.GotoNamedPreset(arguments.ID); });
}

Outcome MoveInImage(Camera& camera, const Arguments& arguments) {
  return CarryOutOn<PTZMoveInImage>(camera, "PTZMoveInImage",
                                    {"move-in-image",
                                     "Centred on " + Text(arguments.X) + ", " + Text(arguments.Y),
                                     {},
                                     Shown::BeforeAndAfter,
                                     CapabilityMoveInImage},
                                    [&](PTZMoveInImage& mover) {
                                      mover.MoveInImage(arguments.X, arguments.Y, arguments.Width,
                                                        arguments.Height);
                                    });
}

Outcome Continuous(Camera& camera, const Arguments& arguments) {
  const bool moves = arguments.Pan != 0 || arguments.Tilt != 0 || arguments.Zoom.value_or(0) != 0;
  auto done = "Moving at speed " + PanTilt(arguments.Pan, arguments.Tilt);
  if (arguments.Zoom) done += ", zoom " + Text(*arguments.Zoom);
  auto outcome = CarryOutOn<PTZContinuousControl>(
      camera, "PTZContinuousControl",
      {"continuous", done, {}, arguments.Duration ? Shown::After : Shown::Nothing, CapabilityContinuousMove},
      [&](PTZContinuousControl& control) {
        Run(camera, control, arguments, moves, [&] {
          control.ContinuousMove(arguments.Pan, arguments.Tilt);
          if (arguments.Zoom) control.ContinuousZoom(*arguments.Zoom);
        });
      });
  return Described(std::move(outcome), arguments);
}

Outcome ContinuousZoom(Camera& camera, const Arguments& arguments) {
  auto outcome = CarryOutOn<PTZContinuousControl>(camera, "PTZContinuousControl",
                                                  {"continuous-zoom",
                                                   "Zooming at speed " + Text(arguments.Amount),
                                                   {},
                                                   arguments.Duration ? Shown::After : Shown::Nothing,
                                                   CapabilityContinuousZoom},
                                                  [&](PTZContinuousControl& control) {
                                                    Run(camera, control, arguments, arguments.Amount != 0,
                                                        [&] { control.ContinuousZoom(arguments.Amount); });
                                                  });
  return Described(std::move(outcome), arguments);
}

Outcome Stop(Camera& camera, const Arguments&) {
  // The position is read afterwards only: nothing comes before a stop.
  auto outcome = CarryOutOn<PTZContinuousControl>(camera, "PTZContinuousControl",
                                                  {"stop", "Stopped", {}, Shown::After}, StopMotion);
  if (outcome.Result == Result::Done) {
    camera.InMotion = false;
    if (!Interrupted()) ReleaseInterrupts();
  } else if (!outcome.Requests.empty()) {
    outcome.Notes.emplace_back(MayMove);
  }
  return outcome;
}

Outcome Wait(Camera&, const Arguments& arguments) {
  Outcome outcome;
  outcome.Operation = "wait";
  outcome.Text = "Waited " + Seconds(*arguments.Duration);
  if (!SleepUnlessInterrupted(*arguments.Duration)) {
    outcome.Result = Result::Interrupted;
    outcome.Text = "interrupted";
  }
  return outcome;
}

}  // namespace ptzctl
