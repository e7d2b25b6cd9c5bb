#pragma once

#include <string>
#include <vector>

#include <ptzd/Export.h>
#include <ptzd/PTZNamedPreset.h>

namespace ptzd {

/// Presets that the camera knows by name.
class PTZD_API PTZNamedPresets {
 public:
  virtual ~PTZNamedPresets() = default;

  /// The presets in the order the device lists them, each with an ID of its own. Raises a `PTZErrors` number
  /// or one of `HTTPClient`'s where the device cannot be asked, 457 where it lists an ID twice.
  virtual std::vector<PTZNamedPreset> GetNamedPresets();
  /// Vivotek's raises likewise.
  virtual void GotoNamedPreset(const std::string& id);
};

}  // namespace ptzd
