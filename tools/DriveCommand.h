#pragma once

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// Has a person drive the camera of the command line on the whole screen of the terminal, and ends the
/// process with the exit code. The camera rests by then, or it is told that it could not be stopped. Raises
/// `UsageError`.
int RunDrive(const Invocation& invocation, Report& report);

}  // namespace ptzctl
