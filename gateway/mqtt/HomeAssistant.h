#pragma once

#include <nlohmann/json_fwd.hpp>

#include <map>
#include <string>
#include <string_view>

#include "gateway/core/GateFile.h"

namespace ptzgate {

/// What Home Assistant is told so that it knows the cameras without being set up: a message for each button
/// and sensor, by its topic, "PREFIX/KIND/GATEWAY/CAMERA__WHAT/config".
using DiscoveryMessages = std::map<std::string, std::string>;

/// All of a camera. `about` is as the gateway publishes it.
DiscoveryMessages DiscoveryOf(const MQTTSettings& settings, const std::string& camera,
                              const nlohmann::json& about);

/// Any text in letters, digits, "-" and "_", no two texts in the same; never with "__" in it.
std::string DiscoveryID(std::string_view text);
/// What all topics of this gateway's cameras fit, to subscribe to them.
std::string DiscoveryFilter(const MQTTSettings& settings);
/// The `DiscoveryID` of the camera that a topic is for; empty where it is none of this gateway's.
std::string CameraOfDiscovery(const MQTTSettings& settings, std::string_view topic);

}  // namespace ptzgate
