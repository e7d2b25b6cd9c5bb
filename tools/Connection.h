#pragma once

#include <string>

#include <ptzd/DriverFactory.h>
#include <ptzd/PropertyBag.h>
#include "cameras/ConnectionOptions.h"

namespace ptzctl {

/// The driver class of a ProgID or of what follows its "QVPTZ.", in any case of letters. Raises `UsageError`.
const ptzd::DriverClass& FindDriver(const std::string& name);

using ptzd::CommonOptions;
using ptzd::DescribedOptions;

/// Stores "Key=Value" with the type that the driver expects of the key; as text where it knows none of that
/// name. `warning` then says so, and also of a number outside the range that the driver describes. Raises
/// `UsageError` for a text of another form or a value of another kind.
void StoreOption(ptzd::PropertyBag& bag, const ptzd::DriverClass& driver, const std::string& text,
                 std::string& warning);

/// The address, which stands behind "http://" as it is. Raises `UsageError` for one with a scheme or a path.
const std::string& CheckedAddress(const std::string& address);

}  // namespace ptzctl
