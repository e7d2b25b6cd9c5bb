#pragma once

#include <map>
#include <optional>
#include <string>

#include "gateway/core/StateFile.h"

namespace ptzgate {

/// Presets of cameras that have none of their own but tell where they are: places, kept by the gateway.
class PlacePresets {
 public:
  struct Place {
    std::string Name;
    float Pan = 0, Tilt = 0;
    std::optional<float> Zoom;
  };

  /// Raises `std::runtime_error` for a file that is there and cannot be understood.
  explicit PlacePresets(const std::string& folder);

  /// By their tokens: "place-1".
  const std::map<std::string, Place>& Of(const std::string& camera) const;
  /// A token that no place of the camera has.
  std::string NewToken(const std::string& camera) const;
  // Both raise `std::runtime_error` where that cannot be written; then nothing is changed.
  void Save(const std::string& camera, const std::string& token, const Place& place);
  void Remove(const std::string& camera, const std::string& token);

 private:
  using Places = std::map<std::string, std::map<std::string, Place>>;
  void Store(Places places);

  StateFile File_;
  Places Places_;
};

}  // namespace ptzgate
