#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>

#include <ptzd/Export.h>

namespace ptzd {

/// Debug: the steps of a transfer. Info: what a driver does. Warning: it goes on without something. Error:
/// what it was to do has failed.
enum class LogLevel { Debug, Info, Warning, Error };

/// Every diagnostic text of the library passes here. It is dropped unless a sink is attached.
PTZD_API void LogMessage(std::string_view message, LogLevel level = LogLevel::Info);

using LogSink = std::function<void(std::string_view)>;

/// Attaches a sink that is handed every message as `MaskCredentials` shows it; an empty one detaches. The
/// sink is called on the thread that logs, one message at a time, and must not log itself.
PTZD_API void SetLogSink(LogSink sink);

/// A message with what it is about. Its texts are valid during the call.
struct LogLine {
  std::string_view Text;  ///< as the other sink is handed it
  LogLevel Level = LogLevel::Info;
  std::string_view DriverClass;  ///< "QVPTZ.Axis"; empty where it is about no driver
  std::string_view Address;      ///< of the driver's camera, without a login, or "COM1"
  std::chrono::system_clock::time_point When;
};

using LogLineSink = std::function<void(const LogLine&)>;

/// The same with all that is known of a message; both sinks may be attached.
PTZD_API void SetLogLineSink(LogLineSink sink);

/// "debug", "info", "warning", "error".
PTZD_API std::string_view NameOf(LogLevel level);

}  // namespace ptzd
