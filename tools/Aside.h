#pragma once

#include <chrono>
#include <functional>
#include <vector>

namespace ptzctl {

/// Runs tasks in their order, a few at once, on threads of their own. Blocks until all have ended, at most
/// until the deadline; what has not begun by then never does, and what has not ended goes on aside, so it
/// must own what it uses. Answers whether all have ended. What a task raises ends that task.
bool RunAside(std::vector<std::function<void()>> tasks, unsigned atOnce,
              std::chrono::steady_clock::time_point deadline);

/// Whether a thread may still be there, so that the process cannot end in the ordinary way.
bool MayBeBusyAside();

}  // namespace ptzctl
