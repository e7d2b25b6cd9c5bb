#pragma once

#include "com/Automation.h"

namespace ptzd::com {

/// The object through which a host puts its own serial ports in place of the library's.
ComPtr<IUnknown> NewSerialPorts();

}  // namespace ptzd::com
