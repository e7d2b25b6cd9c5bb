#pragma once

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// Examines a camera and its driver and answers the exit code: 0 where no check failed.
int RunCheck(const Invocation& invocation, Report& report);

}  // namespace ptzctl
