#include "DriveCommand.h"
#include "Words.h"

namespace ptzctl {

int RunDrive(const Invocation&, Report&) {
  throw UsageError("drive is not there on Windows, for want of a terminal library; use shell or run");
}

}  // namespace ptzctl
