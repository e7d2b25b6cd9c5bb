#pragma once

#include <string>

#include <ptzd/Variant.h>
#include "CheckBench.h"
#include "CommandLine.h"

namespace ptzctl {

// Drivers as COM classes, on Windows: those of other makers, and the library's own as its hosts have them.

/// Whether the driver of the command line is to be had from COM: it is registered, and either ptzctl has none
/// of that name or it was asked for so.
bool IsForeign(const Invocation& invocation);

struct ForeignOptions {
  ptzd::Bytes Contents;  ///< as the component run time's bag writes them where it is installed
  std::string Address;
};
/// Of values whose kinds nobody tells: whole numbers, True and False are stored as such, all else as text.
/// Raises `UsageError`.
ForeignOptions ForeignOptionsOf(const Invocation& invocation);

/// Its members are called by name: through the type information of the library's interfaces where the object
/// has them, else as scripts call it. Raises `Error`.
DriverUnderTest MakeForeignDriver(const std::string& progID);

}  // namespace ptzctl
