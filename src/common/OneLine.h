#pragma once

#include <string>
#include <string_view>

namespace ptzd {

/// A text as one line, whatever a camera put into it: line ends as "\r" and "\n", other control characters as
/// dots.
inline std::string OneLine(std::string_view text) {
  std::string line;
  for (const char c : text) {
    if (c == '\n')
      line += "\\n";
    else if (c == '\r')
      line += "\\r";
    else
      line += static_cast<unsigned char>(c) < ' ' ? '.' : c;
  }
  return line;
}

}  // namespace ptzd
