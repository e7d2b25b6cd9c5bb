#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "gateway/core/StateFile.h"

namespace ptzgate {

/// Names that clients gave presets, by camera and number, kept in a file.
class PresetNames {
 public:
  /// Empty: nothing is kept. Raises `std::runtime_error` for a file that is there and cannot be understood.
  explicit PresetNames(const std::string& folder);

  const std::map<std::int32_t, std::string>& Of(const std::string& camera) const;
  /// Raises `std::runtime_error` where it cannot be written; then nothing is changed.
  void Give(const std::string& camera, std::int32_t number, const std::string& name);
  void TakeAway(const std::string& camera, std::int32_t number);

 private:
  using Names = std::map<std::string, std::map<std::int32_t, std::string>>;
  void Store(Names names);

  StateFile File_;
  Names Names_;
};

}  // namespace ptzgate
