#pragma once

#include <string>
#include <vector>

#include <ptzd/DriverFactory.h>
#include <ptzd/PTZOption.h>
#include <ptzd/PropertyBag.h>

namespace ptzd {

/// The driver class of a ProgID or of what follows its "QVPTZ.", in any case of letters. Raises `InputError`,
/// which names the nearest.
const DriverClass& DriverNamed(const std::string& name);

/// The options that the driver describes.
std::vector<PTZOption> DescribedOptions(const DriverClass& driver);
/// The options that a driver reads besides, shared by many makes.
std::vector<PTZOption> CommonOptions(const DriverClass& driver);
/// Both.
std::vector<PTZOption> OptionsOf(const DriverClass& driver);

/// What a word means as the value of an option. Raises `InputError` for one of another kind.
Variant ReadOption(const PTZOption& option, const std::string& word);
/// What to say of a number outside the range that the driver describes; empty where it is inside.
std::string RangeWarning(const PTZOption& option, const Variant& value);

/// The address, which stands behind "http://" as it is. Raises `InputError`, which begins with `name`, for
/// one with a scheme, a path, blanks or a port that is none.
const std::string& CheckedAddress(const std::string& name, const std::string& address);

}  // namespace ptzd
