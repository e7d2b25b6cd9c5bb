#include "gateway/core/Ranges.h"

#include <algorithm>
#include <cmath>

namespace ptzgate {

namespace {

// Where a driver passes on what it is given.
constexpr double HalfTurn = 180, QuarterTurn = 90;
constexpr double UsualZoom = 100;
// Of speeds; drivers' scales are mostly twentieths. Where too fast a speed is an error, the end of the
// driver's range is no speed of a camera's.
constexpr double UsualTop = 20, UsualZoomTop = 12;

std::optional<Range> PlaceRange(const std::optional<ptzd::ValueRange>& range, double usualLeast,
                                double usualGreatest, bool isTurned,
                                const std::optional<ptzd::CameraLimits>& limits) {
  if (!range) return std::nullopt;
  Range result{std::isfinite(range->Least) ? range->Least : usualLeast,
               std::isfinite(range->Greatest) ? range->Greatest : usualGreatest, std::string(range->Unit)};
  if (isTurned) {
    std::swap(result.Least, result.Greatest);
    result.Least = -result.Least;
    result.Greatest = -result.Greatest;
  }
  if (limits) {
    result.Least = std::max(result.Least, static_cast<double>(limits->Least));
    result.Greatest = std::min(result.Greatest, static_cast<double>(limits->Greatest));
  }
  result.Greatest = std::max(result.Least, result.Greatest);
  return result;
}

std::optional<Range> SpeedRange(const std::optional<ptzd::ValueRange>& range, double usual, bool isTurned) {
  if (!range) return std::nullopt;
  if (range->Ends == ptzd::Beyond::SignOnly) return Range{-1, 1, std::string(range->Unit)};
  const bool isKnown = std::isfinite(range->Greatest) && range->Ends != ptzd::Beyond::Overflows;
  Range result{isKnown ? range->Least : -usual, isKnown ? range->Greatest : usual, std::string(range->Unit)};
  if (isTurned) result = {-result.Greatest, -result.Least, result.Unit};
  return result;
}

}  // namespace

Ranges RangesOf(const ptzd::CameraSettings& settings, const ptzd::DriverData& data) {
  return {
      .Pan = PlaceRange(data.PanRange, -HalfTurn, HalfTurn, settings.InvertPan, settings.PanLimits),
      .Tilt = PlaceRange(data.TiltRange, -QuarterTurn, QuarterTurn, settings.InvertTilt, settings.TiltLimits),
      .Zoom = PlaceRange(data.ZoomRange, 0, UsualZoom, false, settings.ZoomLimits),
      .PanSpeed = SpeedRange(data.PanSpeed, UsualTop, settings.InvertPan),
      .TiltSpeed = SpeedRange(data.TiltSpeed, UsualTop, settings.InvertTilt),
      .ZoomSpeed = SpeedRange(data.ZoomSpeed, UsualZoomTop, false),
  };
}

double SpeedAt(const Range& range, double part) {
  return part < 0 ? -part * range.Least : part * range.Greatest;
}

double PartOf(const Range& range, double speed) {
  const auto end = speed < 0 ? -range.Least : range.Greatest;
  return end > 0 ? std::clamp(speed / end, -1.0, 1.0) : 0;
}

}  // namespace ptzgate
