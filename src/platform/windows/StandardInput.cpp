#include "platform/StandardInput.h"

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

bool InputIsTerminal() {
  DWORD mode = 0;
  return GetConsoleMode(GetStdHandle(STD_INPUT_HANDLE), &mode) != FALSE;
}

bool AwaitInput(std::chrono::milliseconds time) {
  return WaitForSingleObject(GetStdHandle(STD_INPUT_HANDLE), static_cast<DWORD>(time.count())) ==
         WAIT_OBJECT_0;
}

}  // namespace ptzd
