#include "platform/StandardOutput.h"

#include <unistd.h>

namespace ptzd {

bool OutputIsTerminal() { return isatty(STDOUT_FILENO) != 0; }
bool ErrorsAreTerminal() { return isatty(STDERR_FILENO) != 0; }

}  // namespace ptzd
