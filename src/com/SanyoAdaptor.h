#pragma once

#include "com/Contract.h"

#include <memory>
#include <vector>

#include "com/Object.h"
#include "contract/PTZDevice.h"

namespace ptzd::com {

/// The own interface of the Sanyo class, the only one with a member.
std::shared_ptr<IDispatch> OwnSanyo(Object& object, ptzd::PTZDevice& core,
                                    const std::vector<Dispatcher::Part>& others);

}  // namespace ptzd::com
