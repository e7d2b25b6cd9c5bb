#pragma once

#include <vector>

#include "simulators/engine/Make.h"

namespace ptzsim {

/// All of them, by name.
const std::vector<const Make*>& Makes();

}  // namespace ptzsim
