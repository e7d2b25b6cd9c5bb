#include "platform/StandardInput.h"

#include <poll.h>
#include <unistd.h>

namespace ptzd {

bool InputIsTerminal() { return isatty(STDIN_FILENO) != 0; }

bool AwaitInput(std::chrono::milliseconds time) {
  pollfd watched = {STDIN_FILENO, POLLIN, 0};
  return poll(&watched, 1, static_cast<int>(time.count())) > 0;
}

}  // namespace ptzd
