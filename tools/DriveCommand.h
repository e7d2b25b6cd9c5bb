#pragma once

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// Has a person drive the camera of the command line on the whole screen of the terminal; answers the exit
/// code. The camera rests when this is over, or it is told that it could not be stopped. Raises `UsageError`.
int RunDrive(const Invocation& invocation, Report& report);

}  // namespace ptzctl
