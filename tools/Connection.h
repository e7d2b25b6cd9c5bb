#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZOption.h>
#include <ptzd/PropertyBag.h>
#include <ptzd/SerialPortPool.h>

namespace ptzctl {

/// The driver class of a ProgID or of what follows its "QVPTZ.", in any case of letters. Raises `UsageError`.
const ptzd::DriverClass& FindDriver(const std::string& name);

/// The options that the driver describes.
std::vector<ptzd::PTZOption> DescribedOptions(const ptzd::DriverClass& driver);
/// The options that a driver reads besides, shared by many makes.
std::vector<ptzd::PTZOption> CommonOptions(const ptzd::DriverClass& driver);

/// Stores "Key=Value" with the type that the driver expects of the key; as text where it knows none of that
/// name. `warning` then says so, and also of a number outside the range that the driver describes. Raises
/// `UsageError` for a text of another form or a value of another kind.
void StoreOption(ptzd::PropertyBag& bag, const ptzd::DriverClass& driver, const std::string& text,
                 std::string& warning);

/// The address, which stands behind "http://" as it is. Raises `UsageError` for one with a scheme or a path.
const std::string& CheckedAddress(const std::string& address);

/// Has the driver use a serial line: a port number, or any device, which stands for a number in the pool that
/// is answered.
std::shared_ptr<ptzd::SerialPortPool> UseLine(ptzd::PropertyBag& bag, const std::string& line);

}  // namespace ptzctl
