#pragma once

#include <concepts>

#include <ptzd/Logging.h>

namespace ptzd {

/// Whether somebody is handed messages.
bool LogIsTaken();

/// Logs a text that is made only where somebody is handed it; for those of every request.
template <std::invocable Compose>
void LogComposed(const Compose& compose, LogLevel level = LogLevel::Info) {
  if (LogIsTaken()) LogMessage(compose(), level);
}

}  // namespace ptzd
