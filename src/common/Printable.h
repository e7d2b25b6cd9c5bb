#pragma once

#include <string>
#include <string_view>

namespace ptzd {

/// Control characters as "\r", "\n", "\x1B", "\x9D", and bytes that are no UTF-8 likewise: whatever a camera
/// sends, a terminal is not to obey it.
std::string Printable(std::string_view text);

/// The same where it stands in HTML or XML, as text or as a quoted attribute.
std::string MarkupText(std::string_view text);

}  // namespace ptzd
