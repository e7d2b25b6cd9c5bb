#pragma once

namespace ptzd {

/// Whether a person sees what is written to the standard output.
bool OutputIsTerminal();
/// Likewise of the standard error stream.
bool ErrorsAreTerminal();

}  // namespace ptzd
