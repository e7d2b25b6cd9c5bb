#pragma once

#include <string>

#include "CommandLine.h"
#include "Report.h"

namespace ptzctl {

/// What `add` is told besides what every command is.
struct CameraToAdd {
  std::string PasswordFile, PasswordVariable;
  bool InKeyring = false, Replaces = false;
};

// Commands for cameras by name. Each answers the exit code; raise `UsageError`.
int ShowCameras(const Invocation& invocation, Report& report);
int AddCamera(const Invocation& invocation, const CameraToAdd& add, Report& report);
int RemoveCamera(const Invocation& invocation, Report& report);

}  // namespace ptzctl
