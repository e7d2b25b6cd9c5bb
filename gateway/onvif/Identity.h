#pragma once

#include <string>
#include <vector>

namespace ptzgate {

/// What clients know a device by. The same as long as the machine's and the camera's names are.
struct Identity {
  explicit Identity(const std::string& camera);

  std::string UUID;
  std::string Serial;
  std::string HardwareAddress;  ///< a locally administered one, as devices have that are none
};

/// The machine's.
std::string HostName();

/// What a camera tells of itself to those who look for cameras.
std::vector<std::string> ScopesOf(const std::string& camera, const std::string& driver);

}  // namespace ptzgate
