#include "Connection.h"

#include "Words.h"
#include "common/Nearest.h"

namespace ptzctl {

using ptzd::DriverClass, ptzd::PropertyBag;

const DriverClass& FindDriver(const std::string& name) {
  constexpr char listed[] = " (ptzctl drivers lists them)";
  if (name.empty())
    throw UsageError(
        std::string("--driver is missing: give the make of the camera, for example --driver Axis") + listed);
  try {
    return ptzd::DriverNamed(name);
  } catch (const UsageError& error) {
    throw UsageError(error.what() + std::string(listed));
  }
}

void StoreOption(PropertyBag& bag, const DriverClass& driver, const std::string& text, std::string& warning) {
  const auto sign = text.find('=');
  if (sign == std::string::npos || sign == 0)
    throw UsageError("-o " + Printable(text) + ": an option has the form Key=Value");
  const auto key = text.substr(0, sign);
  const auto word = text.substr(sign + 1);

  std::vector<std::string> names;
  for (const auto& option : ptzd::OptionsOf(driver)) {
    if (option.Name() == key) {
      const auto value = ptzd::ReadOption(option, word);
      warning = ptzd::RangeWarning(option, value);
      return bag.WriteProperty(key, value);
    }
    names.push_back(option.Name());
  }
  warning = "the driver " + std::string(driver.ProgID) + " knows no option " + Printable(key) +
            ptzd::DoYouMean(key, names);
  bag.WriteProperty(key, word);
}

const std::string& CheckedAddress(const std::string& address) {
  return ptzd::CheckedAddress("--address", address);
}

}  // namespace ptzctl
