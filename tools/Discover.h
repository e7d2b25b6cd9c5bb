#pragma once

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// The command `discover`: what announces itself by WS-Discovery and by UPnP's SSDP, and which drivers it
/// names. Takes the time that the command line says, and a quarter of a second. Answers the exit code.
int RunDiscover(const Invocation& invocation, Report& report);

}  // namespace ptzctl
