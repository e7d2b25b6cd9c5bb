#include "simulators/engine/Simulator.h"

namespace ptzsim {

Simulator::~Simulator() = default;

}  // namespace ptzsim
