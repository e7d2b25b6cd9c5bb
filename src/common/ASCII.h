#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace ptzd {

/// A letter A to Z in lower case; any other character as it is. For words that are ASCII by their standard
/// or our own; cameras' words may go beyond (`LowerCase`).
constexpr char LowerASCII(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

/// Where the first of some characters stands in a text; its size where there is none of them.
template <char... Characters>
constexpr std::size_t FindAny(std::string_view text) {
  std::size_t at = 0;
  while (at < text.size() && ((text[at] != Characters) && ...)) ++at;
  return at;
}

/// Whether two texts are the same but for the case of such letters.
constexpr bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
  return std::ranges::equal(a, b, {}, LowerASCII, LowerASCII);
}

}  // namespace ptzd
