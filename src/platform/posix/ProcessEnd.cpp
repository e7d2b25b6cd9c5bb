#include "platform/ProcessEnd.h"

#include <cstdlib>

namespace ptzd {

void EndProcessAtOnce(int code) { std::_Exit(code); }

}  // namespace ptzd
