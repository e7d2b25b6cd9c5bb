#pragma once

#include <ptzd/DriverFactory.h>

#include <span>
#include <string_view>

namespace ptzd {

/// A driver that this library offers.
struct CatalogueRow {
  DriverClass Class;      ///< without data and `Create` where the driver is not in this build
  std::string_view Name;  ///< what a host shows
};

/// A separate library's driver, listed whether it is installed or not.
inline constexpr std::string_view SimpleDriver = "qvptzsimple.simple";

/// All of them, in the order in which hosts show them. A driver is added by one row.
std::span<const CatalogueRow> Catalogue();

}  // namespace ptzd
