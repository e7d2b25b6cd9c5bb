#pragma once

#include <ptzd/CameraControl.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>

#include "gateway/core/Users.h"

namespace ptzgate {

// What a face may wish of a camera besides a drive. Degrees, signs and ranges are those of the site; zoom is
// in the driver's own scale.
struct Connect {};
struct Disconnect {};
struct Stop {};
/// Pan and tilt go together, with or without zoom, or zoom alone.
struct MoveTo {
  std::optional<float> Pan, Tilt, Zoom;
};
struct MoveBy {
  float Pan = 0, Tilt = 0;
};
struct ZoomBy {
  ptzd::Zooms Direction = ptzd::ZoomIn;
  float Amount = ptzd::ZoomStepAmount;
};
struct SetIris {
  ptzd::Iris Level = ptzd::IrisAuto;
};
struct SetFocus {
  ptzd::Focus Level = ptzd::FocusAuto;
};
/// `Preset` is a token of `Preset::Token`.
struct GoToPreset {
  std::string Preset;
};
/// Puts where the camera is into a preset: that of a token, or where that is empty a free one. `Name` is how
/// it is called from then on; empty: as before.
struct SavePreset {
  std::string Preset;
  std::string Name;
};
/// Takes away the name of a preset; what the camera has stored stays. Removes one that the gateway keeps.
/// Removes one that the gateway keeps.
struct ForgetPreset {
  std::string Preset;
};
struct GoHome {};
struct ReadPosition {};
struct StartTour {
  std::string Name;
};
struct EndTour {};

using Order = std::variant<Connect, Disconnect, Stop, MoveTo, MoveBy, ZoomBy, SetIris, SetFocus, GoToPreset,
                           SavePreset, ForgetPreset, GoHome, ReadPosition, StartTour, EndTour>;

/// "move to 10, -5, zoom 3", for the audit and for people.
std::string Describe(const Order& order);
std::string Describe(const ptzd::DriveSpeeds& speeds);

/// The least role that an order needs.
Role RoleFor(const Order& order);
/// Whether an order needs that nobody else holds the camera. A stop does not, nor does a question.
bool NeedsControl(const Order& order);
/// Whether it may set something in motion.
bool Moves(const Order& order);

/// A preset as faces tell of it.
struct Preset {
  std::string Token;  ///< letters, digits, "-" and "_"; the same as long as the camera is the same
  std::string Name;   ///< of the site's, the camera's own, or "Preset 3"
  std::optional<std::int32_t>
      Number;            ///< as the driver counts; nothing for one that the camera knows by name only
  bool HasName = false;  ///< somebody gave it one
  std::string ID;        ///< of one that has no number, as the camera calls it
  bool IsPlace = false;  ///< the gateway keeps it, as a place
};

}  // namespace ptzgate
