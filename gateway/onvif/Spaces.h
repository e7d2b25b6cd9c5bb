#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "gateway/core/GateCamera.h"
#include "gateway/onvif/Element.h"

namespace ptzgate {

/// The scales in which a client may tell a camera of places, ways and speeds, and what they are in the
/// camera's own.
class Spaces {
 public:
  enum class Kind { Position, Translation, Velocity };
  struct Axes {
    double Pan = 0, Tilt = 0;
  };

  explicit Spaces(const GateCamera& camera);

  bool HasPanTilt(Kind kind) const { return Has(kind, true); }
  bool HasZoom(Kind kind) const { return Has(kind, false); }

  /// Degrees of a place or a way, or speeds in the driver's scale, of a vector as a client has it. Raises
  /// `Fault` for a space that is not offered, and for what leads out of it.
  Axes PanTilt(Kind kind, const Element& vector) const;
  double Zoom(Kind kind, const Element& vector) const;

  /// The place as clients are told it. Of a pan beyond its range, the same by whole turns.
  Element PanTiltElement(double pan, double tilt) const;
  Element ZoomElement(double zoom) const;

  /// All that are offered, by the names that a node has for them.
  std::vector<Element> Elements() const;
  /// Those that count where a client names none.
  std::vector<Element> Defaults() const;

 private:
  struct Space;

  bool Has(Kind kind, bool isPanTilt) const;
  std::vector<Space> All() const;
  /// Of the vector's own, or of those offered the first.
  Space SpaceOf(Kind kind, bool isPanTilt, const Element& vector) const;

  Ranges Ranges_;
  bool MovesTo_ = false, MovesBy_ = false, Drives_ = false;
  bool ZoomsTo_ = false, ZoomDrives_ = false;
};

/// Whether a camera has a home that it can be sent to.
bool HasHome(const GateCamera& camera);
/// Whether it has presets.
bool HasPresets(const GateCamera& camera);

}  // namespace ptzgate
