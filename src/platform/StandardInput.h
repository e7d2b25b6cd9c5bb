#pragma once

#include <chrono>

namespace ptzd {

/// Whether a person types what is read from the standard input. No more once that terminal is gone.
bool InputIsTerminal();

/// Blocks until there is something to read, or its end, at most so long. False where there is not.
bool AwaitInput(std::chrono::milliseconds time);

}  // namespace ptzd
