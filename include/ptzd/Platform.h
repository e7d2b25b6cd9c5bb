#pragma once

#include <memory>
#include <string_view>

#include <ptzd/Clock.h>
#include <ptzd/Exchange.h>
#include <ptzd/Export.h>

namespace ptzd {

class Internet;
class Sockets;

// The system's own, implemented by the platform.
PTZD_API Internet& SystemInternet();
PTZD_API Sockets& SystemSockets();
PTZD_API void DebugOutput(std::string_view line);

/// What a driver takes from the system. The members are the system's own unless others are put in their
/// place, which must outlive the driver: a host may give it a clock, take its debug output and be told its
/// exchanges; what is behind the other two is the library's own. Serial ports come from the thread's
/// `SerialPortPool`.
struct Platform {
  ptzd::Internet* Internet = &SystemInternet();
  ptzd::Clock* Clock = &SystemClock();
  ptzd::Sockets* Sockets = &SystemSockets();
  void (*DebugOutput)(std::string_view line) = &ptzd::DebugOutput;
  std::shared_ptr<ExchangeSink> Exchanges{};  ///< is told what goes over the wire; null: nobody
};

}  // namespace ptzd
