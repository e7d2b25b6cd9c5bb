#pragma once

#include <chrono>

namespace ptzctl {

/// From here on, Ctrl-C and requests to terminate only set a flag, so that a camera in motion can be stopped
/// first.
void CatchInterrupts();
/// Gives them their usual effect back.
void ReleaseInterrupts();

bool Interrupted();

/// Blocks for a time; returns early, and false, when interrupted.
bool SleepUnlessInterrupted(std::chrono::milliseconds time);

}  // namespace ptzctl
