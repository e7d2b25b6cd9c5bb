#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "drivers/Elmo400.h"

namespace ptzd {

/// Elmo PTC-402C network cameras (`QVPTZ.Elmo402`); see `Elmo400` for what they share with others. One unit
/// of zoom is 418 of the camera's. There are no presets.
class Elmo402 final : public Elmo400 {
 public:
  static const DriverData Data;

  explicit Elmo402(const Platform& platform = {});

 private:
  bool Accepts(std::string_view reply) const override;
  std::vector<std::string> MoveCommands(const HeadPosition& target) const override;
  Reading Read(const std::string& reply) const override;
};

}  // namespace ptzd
