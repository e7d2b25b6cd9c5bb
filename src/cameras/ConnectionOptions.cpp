#include "cameras/ConnectionOptions.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <iterator>

#include <ptzd/PTZDrivers.h>
#include "cameras/InputWords.h"
#include "common/ASCII.h"
#include "common/Nearest.h"
#include "common/Numbers.h"
#include "common/Printable.h"

namespace ptzd {

namespace {

constexpr std::string_view LibraryPrefix = "QVPTZ.";

std::string Join(const std::vector<Variant>& values) {
  std::string text;
  for (const auto& value : values) text.append(text.empty() ? "" : ", ").append(ToText(value));
  return text;
}

/// Also where it is left out, as systems take that.
bool IsPort(std::string_view text) {
  std::uint16_t port = 1;
  const auto* end = text.data() + text.size();
  return text.empty() ||
         (std::from_chars(text.data(), end, port) == std::from_chars_result{end, {}} && port > 0);
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
  throw InputError(option.Name() + ": \"" + Printable(word) + "\" is none of " + Join(choices));
}

std::vector<PTZOption> OptionsOf(const DriverClass& driver, bool described) {
  std::vector<PTZOption> options;
  for (const auto* option : driver.Data->Options)
    if (option->Described == described) options.push_back(option->Descriptor());
  return options;
}

}  // namespace

const DriverClass& DriverNamed(const std::string& name) {
  if (const auto* driver = FindDriverClass(name)) return *driver;
  const auto progID = std::string(LibraryPrefix) + name;
  if (const auto* driver = FindDriverClass(progID)) return *driver;
  const PTZDrivers catalogue;
  for (const auto& entry : catalogue.NewEnum()) {
    if (EqualsIgnoringCase(entry->Class(), name) || EqualsIgnoringCase(entry->Class(), progID))
      throw InputError("the driver " + entry->Class() + " (" + entry->Name() +
                       ") is listed, but is not in this build");
  }
  std::vector<std::string> names;
  for (const auto& driver : DriverClasses()) names.emplace_back(driver.ProgID.substr(LibraryPrefix.size()));
  const auto prefix = name.size() > LibraryPrefix.size() &&
                              EqualsIgnoringCase(name.substr(0, LibraryPrefix.size()), LibraryPrefix)
                          ? LibraryPrefix.size()
                          : 0;
  throw InputError("there is no driver \"" + Printable(name) + "\"" + DoYouMean(name.substr(prefix), names));
}

std::vector<PTZOption> DescribedOptions(const DriverClass& driver) { return OptionsOf(driver, true); }

std::vector<PTZOption> CommonOptions(const DriverClass& driver) { return OptionsOf(driver, false); }

std::vector<PTZOption> OptionsOf(const DriverClass& driver) {
  auto options = DescribedOptions(driver);
  std::ranges::move(CommonOptions(driver), std::back_inserter(options));
  return options;
}

Variant ReadOption(const PTZOption& option, const std::string& word) {
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

/// What a settings page offers is narrower than what a driver takes (serial ports beyond the fourth, say).
std::string RangeWarning(const PTZOption& option, const Variant& value) {
  const auto& range = option.Values();
  if (option.OType() != OptionInteger || range.size() != 2) return {};
  if (ToInt32(value) >= ToInt32(range[0]) && ToInt32(value) <= ToInt32(range[1])) return {};
  return option.Name() + ": " + ToText(value) + " is not between " + ToText(range[0]) + " and " +
         ToText(range[1]) + ", which the driver says is its range";
}

const std::string& CheckedAddress(const std::string& name, const std::string& address) {
  const auto host = address.substr(std::min(address.rfind('@') + 1, address.size()));
  if (address.find("://") != std::string::npos || host.find_first_of("/?#") != std::string::npos)
    throw InputError(name + ": HOST or HOST:PORT is wanted, without a scheme or a path");
  if (std::ranges::any_of(host, [](unsigned char c) { return c <= ' ' || c == 0x7F; }))
    throw InputError(name + ": \"" + Printable(host) + "\" has blanks or control characters");
  // The colons of an IPv6 address in brackets are no port's.
  const auto bracket = host.rfind(']');
  const auto colon = host.find(':', bracket == std::string::npos ? 0 : bracket);
  if (colon != std::string::npos && !IsPort(std::string_view(host).substr(colon + 1)))
    throw InputError(name + ": \"" + Printable(host) +
                     "\": behind the colon a port from 1 to 65535 is wanted");
  return address;
}

}  // namespace ptzd
