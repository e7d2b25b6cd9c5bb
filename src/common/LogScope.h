#pragma once

#include <string>
#include <string_view>

namespace ptzd {

/// What log lines are about.
struct LogSubject {
  std::string_view DriverClass;  ///< "QVPTZ.Axis"
  std::string Address;           ///< of the camera, without a login
};

/// While it lives, the calling thread's log lines are about a driver and its camera. Costs a pointer.
class LogScope {
 public:
  explicit LogScope(const LogSubject& subject);
  ~LogScope();
  LogScope(const LogScope&) = delete;
  LogScope& operator=(const LogScope&) = delete;

 private:
  const LogSubject* Before_;
};

/// Whether a sink of log lines is attached, so that it is worth keeping what they are about.
bool LogLinesAreTaken();
/// The calling thread's subject, null where it has none.
const LogSubject* CurrentLogSubject();

}  // namespace ptzd
