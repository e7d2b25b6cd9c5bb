#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace ptzd {

/// Every diagnostic text of the library passes here. It is dropped unless a sink is attached.
void LogMessage(std::string_view message);

using LogSink = std::function<void(std::string_view)>;

/// Attaches a sink that is handed every message as `MaskCredentials` shows it; an empty one detaches. The
/// sink is called on the thread that logs, one message at a time, and must not log itself.
void SetLogSink(LogSink sink);

}  // namespace ptzd
