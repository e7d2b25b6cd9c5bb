#pragma once

#include <ptzd/CameraControl.h>

#include <optional>
#include <string>

namespace ptzgate {

struct Range {
  double Least = 0, Greatest = 0;
  std::string Unit;
};

/// What a camera takes, as the site sees it: the driver's ranges, turned where the site turns an axis, and
/// cut by its limits. Nothing where there is no such axis. All ends are finite: where a driver knows none,
/// those of a head are: 180 degrees to both sides, 90 up and down.
struct Ranges {
  std::optional<Range> Pan, Tilt, Zoom;                 ///< of places
  std::optional<Range> PanSpeed, TiltSpeed, ZoomSpeed;  ///< of drives
};
Ranges RangesOf(const ptzd::CameraSettings& settings, const ptzd::DriverData& data);

/// A part of a range: -1 is its least, 0 no motion, 1 its greatest. For speeds, whose ranges have 0 in them.
double SpeedAt(const Range& range, double part);
/// Turns it around; within -1 to 1.
double PartOf(const Range& range, double speed);

}  // namespace ptzgate
