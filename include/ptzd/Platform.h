#pragma once

#include <ptzd/Clock.h>
#include "platform/DebugOutput.h"
#include "platform/Internet.h"
#include "platform/Socket.h"

namespace ptzd {

/// What a driver takes from the system. The members are the system's own unless a host or a test puts others
/// in their place; they must outlive the driver. Serial ports come from the thread's `SerialPortPool`.
struct Platform {
  Internet* internet = &SystemInternet();
  Clock* clock = &SystemClock();
  Sockets* sockets = &SystemSockets();
  void (*debugOutput)(std::string_view line) = &DebugOutput;
};

}  // namespace ptzd
