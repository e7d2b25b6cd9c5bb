#pragma once

#include <string>
#include <utility>
#include <vector>

#include <ptzd/PropertyBag.h>

namespace ptzd::test {

using OptionValues = std::vector<std::pair<const char*, Variant>>;

/// The options of a camera, as a host hands them over; without an address where it is empty.
inline Bytes CameraOptions(const OptionValues& values = {}, const std::string& address = "camera1") {
  PropertyBag options;
  if (!address.empty()) options.WriteProperty("Address", address);
  for (const auto& [name, value] : values) options.WriteProperty(name, value);
  return options.Contents();
}

}  // namespace ptzd::test
