#pragma once

#include "com/Contract.h"

#include <memory>
#include <vector>

#include <ptzd/PTZDevice.h>
#include "com/Object.h"

namespace ptzd::com {

/// The own interface of the Sanyo class, the only one with a member.
std::shared_ptr<IDispatch> OwnSanyo(Object& object, ptzd::PTZDevice& core,
                                    const std::vector<Dispatcher::Part>& others);

}  // namespace ptzd::com
