#include "platform/ProcessEnd.h"

#include <cstdlib>

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

void EndProcessAtOnce(int code) {
  TerminateProcess(GetCurrentProcess(), static_cast<UINT>(code));
  std::_Exit(code);
}

}  // namespace ptzd
