#include "common/Printable.h"

#include "common/Numbers.h"

namespace ptzd {

std::string Printable(std::string_view text) {
  const auto at = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
  std::string printable;
  const auto escape = [&](unsigned code) {
    printable.append("\\x").append(Hex2(static_cast<std::int32_t>(code)));
  };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto code = at(i);
    const std::size_t following = code >= 0xF0 ? 3 : code >= 0xE0 ? 2 : code >= 0xC0 ? 1 : 0;
    bool whole = code < 0x80 || (code >= 0xC2 && code < 0xF5);
    for (std::size_t next = 1; next <= following; ++next) whole = whole && (at(i + next) & 0xC0) == 0x80;
    if (code == '\r') {
      printable += "\\r";
    } else if (code == '\n') {
      printable += "\\n";
    } else if (code < 0x20 || code == 0x7F || !whole) {
      escape(code);
    } else if (code == 0xC2 && at(i + 1) < 0xA0) {
      escape(at(++i));
    } else {
      printable += text.substr(i, following + 1);
      i += following;
    }
  }
  return printable;
}

std::string MarkupText(std::string_view text) {
  std::string markup;
  for (const char c : Printable(text)) switch (c) {
      case '&':
        markup += "&amp;";
        break;
      case '<':
        markup += "&lt;";
        break;
      case '>':
        markup += "&gt;";
        break;
      case '"':
        markup += "&quot;";
        break;
      default:
        markup += c;
    }
  return markup;
}

}  // namespace ptzd
