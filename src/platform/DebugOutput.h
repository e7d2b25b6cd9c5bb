#pragma once

#include <string_view>

#include <ptzd/Export.h>

namespace ptzd {

/// Hands a line to the system's debug output: to an attached debugger on Windows, elsewhere to standard error
/// if the environment variable PTZD_DEBUG is set and not empty when the first line is handed over.
PTZD_API void DebugOutput(std::string_view line);

}  // namespace ptzd
