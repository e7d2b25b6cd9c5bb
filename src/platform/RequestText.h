#pragma once

#include <algorithm>
#include <string_view>

namespace ptzd {

/// A CR, LF or NUL in a part of a request would end its line early and let what follows pass for another
/// line.
inline bool HasLineBreakOrNul(std::string_view text) {
  const auto has = [&](char c) { return text.find(c) != std::string_view::npos; };
  return has('\r') || has('\n') || has('\0');
}

/// Header lines are separated by CR LF and hold no other CR, LF or NUL.
inline bool AreHeaderLines(std::string_view headers) {
  while (!headers.empty()) {
    const auto line = headers.substr(0, headers.find("\r\n"));
    if (HasLineBreakOrNul(line)) return false;
    headers.remove_prefix(std::min(line.size() + 2, headers.size()));
  }
  return true;
}

}  // namespace ptzd
