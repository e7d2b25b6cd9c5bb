#pragma once

#include <ptzd/CameraControl.h>

#include <nlohmann/json.hpp>

#include <chrono>
#include <optional>
#include <span>
#include <string_view>

#include "gateway/core/GateCamera.h"
#include "gateway/core/Order.h"
#include "gateway/wishes/Body.h"

namespace ptzgate {

/// What a client sends to have a camera do something: by the words of `/cameras/{camera}/...` and of a
/// WebSocket's "do" alike.
struct Wishable {
  std::string_view Do;
  Body Takes;
  Order (*Read)(const nlohmann::json& body);
};
std::span<const Wishable> Wishables();
/// Null where there is none of that word.
const Wishable* FindWishable(std::string_view word);

/// Of a drive.
extern const Body DriveBody;
ptzd::DriveSpeeds SpeedsOf(const nlohmann::json& body, const GateCamera& camera);
std::optional<std::chrono::milliseconds> LeaseOf(const nlohmann::json& body);

}  // namespace ptzgate
