#include "Connection.h"

#include <algorithm>
#include <memory>
#include <optional>

#include <ptzd/Error.h>
#include <ptzd/PTZDrivers.h>
#include <ptzd/PTZOptions.h>
#include <ptzd/SerialPortPool.h>
#include "Words.h"
#include "common/ASCII.h"
#include "common/Numbers.h"

namespace ptzctl {

namespace {

using namespace ptzd;

constexpr std::string_view LibraryPrefix = "QVPTZ.";

std::string Join(const std::vector<Variant>& values) {
  std::string text;
  for (const auto& value : values) text.append(text.empty() ? "" : ", ").append(ToText(value));
  return text;
}

/// What a settings page offers is narrower than what a driver takes (serial ports beyond the fourth, say).
std::string RangeWarning(const PTZOption& option, const Variant& value) {
  const auto& range = option.Values();
  if (option.OType() != OptionInteger || range.size() != 2) return {};
  if (ToInt32(value) >= ToInt32(range[0]) && ToInt32(value) <= ToInt32(range[1])) return {};
  return option.Name() + ": " + ToText(value) + " is not between " + ToText(range[0]) + " and " +
         ToText(range[1]) + ", which the driver says is its range";
}

Variant ReadChoice(const PTZOption& option, const std::string& word) {
  const auto& choices = option.Values();
  const auto found =
      std::ranges::find_if(choices, [&](const auto& choice) { return ToText(choice) == word; });
  const bool byIndex = option.OType() == OptionChoiceIndex;
  if (found != choices.end()) {
    if (byIndex) return static_cast<std::int32_t>(found - choices.begin());
    return word;
  }
  const bool isNumber = !word.empty() && word.find_first_not_of("0123456789") == std::string::npos;
  if (byIndex && isNumber) {
    const auto index = ReadWholeNumber(option.Name(), word);
    if (index < static_cast<std::int32_t>(choices.size())) return index;
  }
  throw UsageError(option.Name() + ": \"" + Printable(word) + "\" is none of " + Join(choices));
}

Variant ReadValue(const PTZOption& option, const std::string& word) {
  switch (option.OType()) {
    case OptionInteger:
      return ReadWholeNumber(option.Name(), word);
    case OptionBoolean:
      return ReadBoolean(option.Name(), word);
    case OptionChoiceIndex:
    case OptionChoiceText:
      return ReadChoice(option, word);
    default:
      return word;
  }
}

std::vector<PTZOption> OptionsOf(const DriverClass& driver, bool described) {
  std::vector<PTZOption> options;
  for (const auto* option : driver.Data->Options)
    if (option->Described == described) options.push_back(option->Descriptor());
  return options;
}

}  // namespace

const DriverClass& FindDriver(const std::string& name) {
  if (name.empty())
    throw UsageError(
        "--driver is missing: give the make of the camera, for example --driver Axis (ptzctl "
        "drivers lists them)");
  if (const auto* driver = FindDriverClass(name)) return *driver;
  const auto progID = std::string(LibraryPrefix) + name;
  if (const auto* driver = FindDriverClass(progID)) return *driver;
  const PTZDrivers catalogue;
  for (const auto& entry : catalogue.NewEnum()) {
    if (EqualsIgnoringCase(entry->Class(), name) || EqualsIgnoringCase(entry->Class(), progID))
      throw UsageError("the driver " + entry->Class() + " (" + entry->Name() +
                       ") is listed, but is not in this build");
  }
  throw UsageError("there is no driver \"" + Printable(name) + "\" (ptzctl drivers lists them)");
}

std::vector<PTZOption> DescribedOptions(const DriverClass& driver) { return OptionsOf(driver, true); }

std::vector<PTZOption> CommonOptions(const DriverClass& driver) { return OptionsOf(driver, false); }

void StoreOption(PropertyBag& bag, const DriverClass& driver, const std::string& text, std::string& warning) {
  const auto sign = text.find('=');
  if (sign == std::string::npos || sign == 0)
    throw UsageError("-o " + Printable(text) + ": an option has the form Key=Value");
  const auto key = text.substr(0, sign);
  const auto word = text.substr(sign + 1);

  auto known = DescribedOptions(driver);
  std::ranges::move(CommonOptions(driver), std::back_inserter(known));
  std::string similar;
  for (const auto& option : known) {
    if (option.Name() == key) {
      const auto value = ReadValue(option, word);
      warning = RangeWarning(option, value);
      return bag.WriteProperty(key, value);
    }
    if (EqualsIgnoringCase(option.Name(), key)) similar = "; do you mean " + option.Name() + "?";
  }
  warning = "the driver " + std::string(driver.ProgID) + " knows no option " + Printable(key) + similar;
  bag.WriteProperty(key, word);
}

const std::string& CheckedAddress(const std::string& address) {
  const auto host = std::min(address.rfind('@') + 1, address.size());
  if (address.find("://") != std::string::npos || address.find_first_of("/?#", host) != std::string::npos)
    throw UsageError(
        "--address: HOST, HOST:PORT or USER:PASSWORD@HOST:PORT is wanted, without a scheme or a path");
  return address;
}

std::shared_ptr<SerialPortPool> UseLine(PropertyBag& bag, const std::string& line) {
  constexpr std::int32_t mappedPort = 1;
  const bool isNumber = line.find_first_not_of("0123456789") == std::string::npos;
  auto ports = std::make_shared<SharedSerialPorts>();
  bag.WriteProperty("COMPort", isNumber ? ReadWholeNumber("--line", line) : mappedPort);
  if (!isNumber) ports->MapDevice(mappedPort, line);
  return ports;
}

}  // namespace ptzctl
