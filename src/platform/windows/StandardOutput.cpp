#include "platform/StandardOutput.h"

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

bool OutputIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_OUTPUT_HANDLE), &mode) != FALSE;
}

}  // namespace ptzd
