#include "platform/StandardOutput.h"

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

bool IsTerminal(DWORD stream) {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(stream), &mode) != FALSE;
}

}  // namespace

bool OutputIsTerminal() { return IsTerminal(STD_OUTPUT_HANDLE); }
bool ErrorsAreTerminal() { return IsTerminal(STD_ERROR_HANDLE); }

}  // namespace ptzd
