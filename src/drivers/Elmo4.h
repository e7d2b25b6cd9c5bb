#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "drivers/Elmo400.h"

namespace ptzd {

/// Elmo 400 series network cameras (`QVPTZ.Elmo4`); see `Elmo400` for what they share with others. One unit
/// of zoom is 432 of the camera's, which begin at 64. There are 16 numbered presets; home is the camera's
/// next one.
class Elmo4 final : public Elmo400 {
 public:
  static const DriverData Data;

  explicit Elmo4(const Platform& platform = {});

 private:
  bool SavePreset(std::int32_t preset) override;
  bool GoToPreset(std::int32_t preset) override;
  bool Accepts(std::string_view reply) const override;
  std::vector<std::string> MoveCommands(const HeadPosition& target) const override;
  Reading Read(const std::string& reply) const override;
};

}  // namespace ptzd
