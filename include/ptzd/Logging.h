#pragma once

#include <functional>
#include <string>
#include <string_view>

#include <ptzd/Export.h>

namespace ptzd {

/// Every diagnostic text of the library passes here. It is dropped unless a sink is attached.
PTZD_API void LogMessage(std::string_view message);

using LogSink = std::function<void(std::string_view)>;

/// Attaches a sink that is handed every message as `MaskCredentials` shows it; an empty one detaches. The
/// sink is called on the thread that logs, one message at a time, and must not log itself.
PTZD_API void SetLogSink(LogSink sink);

}  // namespace ptzd
