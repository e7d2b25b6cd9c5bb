#pragma once

#include <string>

#include <ptzd/DriverData.h>
#include <ptzd/Enumerations.h>
#include <ptzd/Error.h>
#include <ptzd/PropertyBag.h>

namespace ptzd {

/// Raises a driver's hard failure to the host; the source is the driver's own class. What a description
/// quotes of a camera's reply goes through `MaskCredentials`: a page may echo the login.
[[noreturn]] inline void Raise(PTZErrors number, std::string description) {
  throw Error(number, std::move(description));
}

/// The option Address. Raises what the driver's data says for want of one.
inline std::string RequireAddress(const PropertyBag& options, const DriverData& data) {
  auto address = options.Text("Address");
  if (address.empty()) Raise(data.NoAddress->Number, std::string(data.NoAddress->Description));
  return address;
}

}  // namespace ptzd
