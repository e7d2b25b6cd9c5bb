#pragma once

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// Sends a camera round the stops of a file until its rounds are over, a stop fails, or somebody interrupts;
/// answers the exit code.
int RunTour(const Invocation& invocation, Report& report);

}  // namespace ptzctl
