#include "platform/DebugOutput.h"

#include <cstdio>
#include <cstdlib>

namespace ptzd {

void DebugOutput(std::string_view line) {
  static const bool wanted = [] {
    const char* value = std::getenv("PTZD_DEBUG");
    return value != nullptr && *value != '\0';
  }();
  if (wanted) std::fprintf(stderr, "%.*s\n", static_cast<int>(line.size()), line.data());
}

}  // namespace ptzd
