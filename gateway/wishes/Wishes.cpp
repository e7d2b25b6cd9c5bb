#include "gateway/wishes/Wishes.h"

#include <algorithm>
#include <cmath>

#include "gateway/core/Refusal.h"

namespace ptzgate {

using nlohmann::json;

namespace {

using Types = Member::Types;

std::optional<float> NumberOf(const json& object, const char* name) {
  const auto value = object.find(name);
  if (value == object.end()) return std::nullopt;
  return value->get<float>();
}

constexpr std::string_view IrisLevels[] = {"auto", "open", "close"};
constexpr std::string_view FocusLevels[] = {"auto", "near", "far"};

constexpr Member To[] = {
    {"pan", Types::Number, "degrees, positive to the right"},
    {"tilt", Types::Number, "degrees, positive upwards"},
    {"zoom", Types::Number, "in the driver's own scale"},
};
constexpr Member By[] = {
    {"pan", Types::Number, "degrees to the right"},
    {"tilt", Types::Number, "degrees upwards"},
};
constexpr Member Move[] = {
    {"to", Types::Object, "pan and tilt, with or without zoom, or zoom alone", false, {}, To},
    {"by", Types::Object, "from where it is", false, {}, By},
};
constexpr Member Zoom[] = {{"by", Types::Number, "in the driver's own scale, negative for out", true}};
constexpr Member Iris[] = {{"level", Types::Text, "", true, IrisLevels}};
constexpr Member Focus[] = {{"level", Types::Text, "", true, FocusLevels}};
constexpr Member Save[] = {
    {"preset", Types::Text, "token of the preset that is overwritten; without it one that has no name"},
    {"name", Types::Text, "how it is called from then on"},
};
constexpr Member OnePreset[] = {{"preset", Types::Text, "its token or name", true}};
constexpr Member OneTour[] = {{"name", Types::Text, "of a tour of this camera", true}};

constexpr Member Parts[] = {
    {"pan", Types::Number, "-1 (left) to 1 (right)"},
    {"tilt", Types::Number, "-1 (down) to 1 (up)"},
    {"zoom", Types::Number, "-1 (out) to 1 (in)"},
};
constexpr Member Drive[] = {
    {"pan", Types::Number, "speed to the right in the driver's own scale"},
    {"tilt", Types::Number, "speed upwards"},
    {"zoom", Types::Number, "speed in"},
    {"part", Types::Object, "in place of these: parts of the fastest", false, {}, Parts},
    {"lease_ms", Types::WholeNumber, "how long the camera goes on without being renewed"},
};

Order ReadMove(const json& body) {
  if (body.contains("to") == body.contains("by"))
    throw Refusal(Refusal::Why::Invalid, "expected either to or by");
  if (body.contains("by")) {
    const auto& by = body["by"];
    if (by.empty()) throw Refusal(Refusal::Why::Invalid, "by: expected pan, tilt or both");
    return MoveBy{NumberOf(by, "pan").value_or(0), NumberOf(by, "tilt").value_or(0)};
  }
  const auto& to = body["to"];
  return MoveTo{NumberOf(to, "pan"), NumberOf(to, "tilt"), NumberOf(to, "zoom")};
}

Order ReadZoom(const json& body) {
  const auto by = body["by"].get<float>();
  if (by == 0) throw Refusal(Refusal::Why::Invalid, "by: expected another number than 0");
  return ZoomBy{by > 0 ? ptzd::ZoomIn : ptzd::ZoomOut, std::abs(by)};
}

Order ReadIris(const json& body) {
  const auto at = std::ranges::find(IrisLevels, body["level"].get<std::string>()) - std::begin(IrisLevels);
  return SetIris{static_cast<ptzd::Iris>(at)};
}

Order ReadFocus(const json& body) {
  const auto at = std::ranges::find(FocusLevels, body["level"].get<std::string>()) - std::begin(FocusLevels);
  return SetFocus{static_cast<ptzd::Focus>(at)};
}

constexpr Wishable All[] = {
    {"move", {"Move", Move}, ReadMove},
    {"zoom", {"Zoom", Zoom}, ReadZoom},
    {"iris", {"Iris", Iris}, ReadIris},
    {"focus", {"Focus", Focus}, ReadFocus},
    {"home", {"Nothing", {}, true}, [](const json&) -> Order { return GoHome(); }},
    {"stop", {"Nothing", {}, true}, [](const json&) -> Order { return Stop(); }},
    {"connect", {"Nothing", {}, true}, [](const json&) -> Order { return Connect(); }},
    {"disconnect", {"Nothing", {}, true}, [](const json&) -> Order { return Disconnect(); }},
    {"position", {"Nothing", {}, true}, [](const json&) -> Order { return ReadPosition(); }},
    {"go", {"OnePreset", OnePreset}, [](const json& body) -> Order { return GoToPreset{body["preset"]}; }},
    {"save",
     {"SavePreset", Save},
     [](const json& body) -> Order {
       return SavePreset{body.value("preset", ""), body.value("name", "")};
     }},
    {"forget",
     {"OnePreset", OnePreset},
     [](const json& body) -> Order { return ForgetPreset{body["preset"]}; }},
    {"tour", {"OneTour", OneTour}, [](const json& body) -> Order { return StartTour{body["name"]}; }},
    {"end_tour", {"Nothing", {}, true}, [](const json&) -> Order { return EndTour(); }},
};

}  // namespace

const Body DriveBody{"Drive", Drive};

std::span<const Wishable> Wishables() { return All; }

const Wishable* FindWishable(std::string_view word) {
  const auto* found = std::ranges::find(All, word, &Wishable::Do);
  return found == std::end(All) ? nullptr : found;
}

ptzd::DriveSpeeds SpeedsOf(const json& body, const GateCamera& camera) {
  const bool inParts = body.contains("part");
  const auto& speeds = inParts ? body["part"] : body;
  if (inParts && (body.contains("pan") || body.contains("tilt") || body.contains("zoom")))
    throw Refusal(Refusal::Why::Invalid, "expected speeds or parts, not both");
  const auto& ranges = camera.RangesNow();
  const auto speed = [&](const char* name, const std::optional<Range>& range) -> std::optional<float> {
    const auto number = NumberOf(speeds, name);
    if (!number || !inParts) return number;
    if (*number < -1 || *number > 1)
      throw Refusal(Refusal::Why::Invalid, "part." + std::string(name) + ": expected -1 to 1");
    if (*number == 0) return 0.0F;
    if (!range)
      throw Refusal(Refusal::Why::Unsupported, "camera " + camera.Name() + " has no speed of its " + name);
    return static_cast<float>(SpeedAt(*range, *number));
  };
  const auto pan = speed("pan", ranges.PanSpeed), tilt = speed("tilt", ranges.TiltSpeed);
  ptzd::DriveSpeeds result{.PanTilt = {}, .Zoom = speed("zoom", ranges.ZoomSpeed)};
  if (pan || tilt) result.PanTilt = {pan.value_or(0), tilt.value_or(0)};
  return result;
}

std::optional<std::chrono::milliseconds> LeaseOf(const json& body) {
  const auto lease = body.find("lease_ms");
  if (lease == body.end()) return std::nullopt;
  return std::chrono::milliseconds(lease->get<std::int32_t>());
}

}  // namespace ptzgate
