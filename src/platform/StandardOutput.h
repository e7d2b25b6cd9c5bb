#pragma once

namespace ptzd {

/// Whether a person sees what is written to the standard output.
bool OutputIsTerminal();
/// Likewise of the standard error stream.
bool ErrorsAreTerminal();
/// Whether a person types what is read from the standard input. No more once that terminal is gone.
bool InputIsTerminal();

}  // namespace ptzd
