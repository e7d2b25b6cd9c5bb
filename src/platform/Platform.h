#pragma once

#include "common/Clock.h"
#include "platform/Internet.h"

namespace ptzd {

/// What a driver takes from the system. The members are the system's own unless a host or a test puts others
/// in their place; they must outlive the driver.
struct Platform {
  Internet* internet = &SystemInternet();
  Clock* clock = &SystemClock();
};

}  // namespace ptzd
