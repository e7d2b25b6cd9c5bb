#include "control/Site.h"

#include <algorithm>
#include <cmath>

#include "common/Numbers.h"

namespace ptzd {

namespace {

using Limits = std::optional<CameraLimits>;

std::optional<std::string> Between(const std::string& what, float value, double least, double greatest,
                                   const std::string& unit) {
  if (value >= least && value <= greatest) return std::nullopt;
  const auto number = std::isfinite(value) ? Text(value) : std::string("this");
  if (!std::isfinite(greatest)) return what + ": " + number + " is below " + Text(least) + unit;
  if (!std::isfinite(least)) return what + ": " + number + " is above " + Text(greatest) + unit;
  return what + ": " + number + " is not between " + Text(least) + " and " + Text(greatest) + unit;
}

/// A range that brings a value to its nearest end, or around, refuses none.
std::optional<std::string> OutOf(const std::optional<ValueRange>& range, const std::string& what,
                                 float value) {
  if (!std::isfinite(value)) return what + " is no number";
  if (!range || range->Ends == Beyond::Limited || range->Ends == Beyond::GoesAround ||
      range->Ends == Beyond::SignOnly)
    return std::nullopt;
  return Between(what, value, range->Least, range->Greatest, " " + std::string(range->Unit));
}

std::optional<std::string> OutOf(const Limits& limits, const std::string& what, float value) {
  if (!limits) return std::nullopt;
  return Between(what, value, limits->Least, limits->Greatest, ", the limits of this camera");
}

/// The first of several that is there.
template <typename... Rest>
std::optional<std::string> First(std::optional<std::string> first, Rest... rest) {
  for (auto* refusal : {&first, &rest...})
    if (*refusal) return *std::move(refusal);
  return std::nullopt;
}

std::optional<std::string> OutOfSpeeds(const std::optional<ValueRange>& range, const std::string& what,
                                       float value) {
  if (!range && value != 0) return what + ": this make has no such motion";
  return OutOf(range, what, value);
}

float Step(const Limits& limits, float step, float from) {
  if (!limits || step == 0) return step;
  return std::clamp(from + step, std::min(limits->Least, from), std::max(limits->Greatest, from)) - from;
}

float Speed(const Limits& limits, float speed, float from) {
  if (!limits) return speed;
  return (speed > 0 && from >= limits->Greatest) || (speed < 0 && from <= limits->Least) ? 0 : speed;
}

}  // namespace

std::optional<std::string> Site::Refusal(const CameraPlace& place, const DriverData& data) const {
  const auto outOf = [](const std::optional<ValueRange>& range, const Limits& limits, const std::string& what,
                        const std::optional<float>& value, float turned) -> std::optional<std::string> {
    if (!value) return std::nullopt;
    return First(OutOf(range, what, turned), OutOf(limits, what, *value));
  };
  return First(outOf(data.PanRange, Settings_.PanLimits, "pan", place.Pan, Pan(place.Pan.value_or(0))),
               outOf(data.TiltRange, Settings_.TiltLimits, "tilt", place.Tilt, Tilt(place.Tilt.value_or(0))),
               outOf(data.ZoomRange, Settings_.ZoomLimits, "zoom", place.Zoom, place.Zoom.value_or(0)));
}

Directions Site::Turned(Directions direction) const {
  constexpr std::int32_t panSides = DirectionLeft | DirectionRight, tiltSides = DirectionUp | DirectionDown;
  auto turned = static_cast<std::int32_t>(direction);
  if (Settings_.InvertPan && (turned & panSides) != 0) turned ^= panSides;
  if (Settings_.InvertTilt && (turned & tiltSides) != 0) turned ^= tiltSides;
  return static_cast<Directions>(turned);
}

std::optional<std::string> Site::Refusal(const CameraPlace& step, const CameraPosition& from) const {
  if (from.Kind == PositionKind::Unknown) return std::nullopt;
  // A step back towards the limits is allowed from beyond them too.
  const auto outOf = [](const Limits& limits, const std::string& what, const std::optional<float>& by,
                        const std::optional<float>& at) -> std::optional<std::string> {
    if (!limits || !by || !at) return std::nullopt;
    const float to = *at + *by;
    if ((*by < 0 && to >= limits->Least) || (*by > 0 && to <= limits->Greatest) || *by == 0)
      return std::nullopt;
    return OutOf(limits, what, to);
  };
  return First(outOf(Settings_.PanLimits, "pan", step.Pan, from.Pan),
               outOf(Settings_.TiltLimits, "tilt", step.Tilt, from.Tilt),
               outOf(Settings_.ZoomLimits, "zoom", step.Zoom, from.Zoom));
}

std::optional<std::string> Site::Refusal(const DriveSpeeds& speeds, const DriverData& data) const {
  std::optional<std::string> refusal;
  if (const auto& head = speeds.PanTilt)
    refusal = First(OutOfSpeeds(data.PanSpeed, "pan speed", head->Pan),
                    OutOfSpeeds(data.TiltSpeed, "tilt speed", head->Tilt));
  if (refusal || !speeds.Zoom) return refusal;
  return OutOfSpeeds(data.ZoomSpeed, "zoom speed", *speeds.Zoom);
}

Target Site::Within(const Target& step, const CameraPosition& from) const {
  if (from.Kind == PositionKind::Unknown) return step;
  Target within{Step(Settings_.PanLimits, step.Pan, from.Pan),
                Step(Settings_.TiltLimits, step.Tilt, from.Tilt), step.Zoom};
  if (step.Zoom && from.Zoom) within.Zoom = Step(Settings_.ZoomLimits, *step.Zoom, *from.Zoom);
  return within;
}

DriveSpeeds Site::Within(const DriveSpeeds& speeds, const CameraPosition& from) const {
  if (from.Kind == PositionKind::Unknown) return speeds;
  auto within = speeds;
  if (auto& head = within.PanTilt)
    *head = {Speed(Settings_.PanLimits, head->Pan, from.Pan),
             Speed(Settings_.TiltLimits, head->Tilt, from.Tilt)};
  if (within.Zoom && from.Zoom) *within.Zoom = Speed(Settings_.ZoomLimits, *within.Zoom, *from.Zoom);
  return within;
}

}  // namespace ptzd
