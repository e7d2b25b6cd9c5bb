#pragma once

#include <string>
#include <string_view>

namespace ptzd {

/// Control characters as "\r", "\n", "\x1B", "\x9D", and bytes that are no UTF-8 likewise: whatever a camera
/// sends, a terminal is not to obey it.
std::string Printable(std::string_view text);

}  // namespace ptzd
