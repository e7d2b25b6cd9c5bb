#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include <ptzd/Export.h>

namespace ptzd {

/// One named preset of a camera.
class PTZD_API PTZNamedPreset {
 public:
  PTZNamedPreset() = default;
  PTZNamedPreset(std::int32_t index, std::string id, std::string name)
      : Index_(index), ID_(std::move(id)), Name_(std::move(name)) {}

  /// The preset's number on the device.
  std::int32_t Index() const { return Index_; }
  /// The key by which `PTZNamedPresets::GotoNamedPreset` recalls it.
  const std::string& ID() const { return ID_; }
  /// The text shown to the user.
  const std::string& Name() const { return Name_; }

 private:
  std::int32_t Index_ = 0;
  std::string ID_;
  std::string Name_;
};

}  // namespace ptzd
