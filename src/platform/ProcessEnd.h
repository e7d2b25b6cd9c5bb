#pragma once

namespace ptzd {

/// Ends the process, whatever its threads are doing and without unloading anything. What was written must
/// have been flushed.
[[noreturn]] void EndProcessAtOnce(int code);

}  // namespace ptzd
