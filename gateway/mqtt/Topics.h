#pragma once

#include <string>
#include <string_view>

#include "gateway/core/GateFile.h"

namespace ptzgate {

// The topics of this gateway and of the cameras, as docs/ptzgate.md has them. Names of cameras are levels as
// they are.
inline std::string GatewayTopic(const MQTTSettings& settings, std::string_view what) {
  return settings.Prefix + "/gateway/" + settings.Name + "/" + std::string(what);
}
inline std::string CameraTopic(const MQTTSettings& settings, const std::string& camera,
                               std::string_view what) {
  return settings.Prefix + "/" + camera + "/" + std::string(what);
}
inline std::string CommandTopic(const MQTTSettings& settings, const std::string& camera,
                                std::string_view what) {
  return CameraTopic(settings, camera, "set/") + std::string(what);
}

}  // namespace ptzgate
