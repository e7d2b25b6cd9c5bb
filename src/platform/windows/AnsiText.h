#pragma once

#include <string>
#include <string_view>

#include "platform/CodePages.h"

namespace ptzd {

/// UTF-8 text as the system's "A" functions take it.
inline std::string AnsiFromText(std::string_view text) {
  const auto bytes = TextToCodePage(text, AnsiCodePage());
  return {bytes.begin(), bytes.end()};
}

/// Text of the system's "A" functions as UTF-8.
inline std::string TextFromAnsi(std::string_view ansi) {
  return TextFromCodePage({reinterpret_cast<const std::uint8_t*>(ansi.data()), ansi.size()}, AnsiCodePage());
}

}  // namespace ptzd
