#pragma once

#include <memory>
#include <span>
#include <string_view>

#include <ptzd/DriverData.h>
#include <ptzd/Export.h>
#include <ptzd/PTZDevice.h>
#include <ptzd/Platform.h>

namespace ptzd {

/// A driver class of this build.
struct DriverClass {
  std::string_view ProgID;
  const DriverData* Data;
  std::unique_ptr<PTZDevice> (*Create)(const Platform& platform);
};

/// All driver classes of this build, in the order of the catalogue.
PTZD_API std::span<const DriverClass> DriverClasses();

/// The class of a ProgID in any case of letters, null where this build has none of that name.
PTZD_API const DriverClass* FindDriverClass(std::string_view progID);

/// A new driver object, by its ProgID in any case of letters. Its other interfaces are reached by
/// `dynamic_cast`. Raises 429 where this build has no such driver, and says whether the catalogue lists it
/// all the same.
PTZD_API std::unique_ptr<PTZDevice> CreateDriver(std::string_view progID, const Platform& platform = {});

}  // namespace ptzd
