#include <ptzd/DriverFactory.h>

#include <algorithm>
#include <string>
#include <vector>

#include <ptzd/Error.h>
#include <ptzd/PTZDrivers.h>
#include "catalogue/Catalogue.h"
#include "common/ASCII.h"

namespace ptzd {

std::span<const DriverClass> DriverClasses() {
  static const auto classes = [] {
    std::vector<DriverClass> all;
    for (const auto& row : Catalogue())
      if (row.Class.Create != nullptr) all.push_back(row.Class);
    return all;
  }();
  return classes;
}

const DriverClass* FindDriverClass(std::string_view progID) {
  const auto classes = DriverClasses();
  const auto found =
      std::ranges::find_if(classes, [&](const auto& row) { return EqualsIgnoringCase(row.ProgID, progID); });
  return found == classes.end() ? nullptr : &*found;
}

std::unique_ptr<PTZDevice> CreateDriver(std::string_view progID, const Platform& platform) {
  if (const auto* driver = FindDriverClass(progID)) return driver->Create(platform);
  const PTZDrivers catalogue;
  const bool listed = std::ranges::any_of(
      catalogue.NewEnum(), [&](const auto& entry) { return EqualsIgnoringCase(entry->Class(), progID); });
  throw Error(ErrorCannotCreateObject, RunTimeErrorText(ErrorCannotCreateObject) + ": " +
                                           std::string(progID) +
                                           (listed ? " is listed, but its driver is not in this build"
                                                   : " is not a driver this library knows"));
}

}  // namespace ptzd
