#pragma once

#include <ptzd/CameraControl.h>
#include <ptzd/DriverData.h>

#include <optional>
#include <string>

namespace ptzd {

/// Where a camera is sent, or by how much it is moved.
struct Target {
  float Pan = 0, Tilt = 0;
  std::optional<float> Zoom;
};

/// How a site has its camera: which axes are turned around, and how far they may go.
class Site {
 public:
  explicit Site(const CameraSettings& settings) : Settings_(settings) {}

  /// Between the site's and the driver's signs, both ways.
  float Pan(float pan) const { return Settings_.InvertPan ? -pan : pan; }
  float Tilt(float tilt) const { return Settings_.InvertTilt ? -tilt : tilt; }
  Directions Turned(Directions direction) const;
  Target Turned(const Target& target) const { return {Pan(target.Pan), Tilt(target.Tilt), target.Zoom}; }

  /// What speaks against a target of the site, beginning with what it is of; nothing where it may be sent.
  std::optional<std::string> Refusal(const CameraPlace& place, const DriverData& data) const;
  /// What speaks against a step of the site from a position; nothing where that is not known.
  std::optional<std::string> Refusal(const CameraPlace& step, const CameraPosition& from) const;
  /// The same of speeds.
  std::optional<std::string> Refusal(const DriveSpeeds& speeds, const DriverData& data) const;

  bool HasLimits() const { return Settings_.PanLimits || Settings_.TiltLimits || Settings_.ZoomLimits; }
  /// As much of a step as stays within the limits. From a position that is not known the whole of it.
  Target Within(const Target& step, const CameraPosition& from) const;
  /// The same for speeds: an axis that is at its limit does not go on.
  DriveSpeeds Within(const DriveSpeeds& speeds, const CameraPosition& from) const;

 private:
  const CameraSettings& Settings_;
};

}  // namespace ptzd
