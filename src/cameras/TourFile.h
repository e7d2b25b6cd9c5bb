#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include <ptzd/CameraControl.h>

namespace ptzd {

/// A place that a camera is sent to, or a stretch that it is driven. Exactly one of `Preset`, `To` and
/// `Speeds` says where.
struct TourStop {
  std::string Preset;          ///< its number, or its name
  CameraPlace To;              ///< pan and tilt, with or without zoom, or zoom alone
  std::optional<float> Speed;  ///< of the way `To` there, by continuous motion; absent: as the camera does it
  std::optional<DriveSpeeds> Speeds;
  std::chrono::milliseconds For{};  ///< how long it is driven at `Speeds`
  std::chrono::milliseconds Pause;  ///< how long it stays
};

/// What a camera does of itself, again and again.
struct Tour {
  std::vector<TourStop> Stops;
  std::int32_t Rounds = 0;                  ///< 0: without end
  std::chrono::milliseconds Arrive{60000};  ///< how long a camera may take to where it is sent
  std::chrono::milliseconds Travel{5000};   ///< how long one is given that cannot tell whether it is there
};

/// Raises `InputError`, for what is wrong in the file with line, column and what was expected there.
Tour ReadTour(const std::string& file);

}  // namespace ptzd
