#pragma once

#include "com/Automation.h"

#include <memory>

#include <ptzd/Exchange.h>

namespace ptzd::com {

/// The object that starts and ends the log file of the process.
ComPtr<IUnknown> NewLog();

/// Writes a driver's exchanges into that file while there is one.
std::shared_ptr<ExchangeSink> LoggedExchanges();

}  // namespace ptzd::com
