#include "transport/StringEncoding.h"

#include "platform/CodePages.h"

namespace ptzd {

namespace {

constexpr char32_t Replacement = 0xFFFD;

/// The character at `at`, which is moved behind it.
char32_t TakeCharacter(std::string_view text, std::size_t& at) {
  const auto lead = static_cast<unsigned char>(text[at++]);
  if (lead < 0x80) return lead;
  const int following = lead >= 0xF0 && lead < 0xF5   ? 3
                        : lead >= 0xE0 && lead < 0xF0 ? 2
                        : lead >= 0xC2 && lead < 0xE0 ? 1
                                                      : 0;
  if (following == 0 || at + following > text.size()) return Replacement;
  char32_t character = lead & (0x3F >> following);
  for (int i = 0; i < following; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xC0) != 0x80) return Replacement;
    character = (character << 6) | (next & 0x3F);
  }
  constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
  if (character < least[following] || character > 0x10FFFF || (character >= 0xD800 && character < 0xE000))
    return Replacement;
  at += following;
  return character;
}

}  // namespace

std::string DecodeBytes(std::span<const std::uint8_t> bytes, std::int32_t codePage) {
  return bytes.empty() ? std::string() : TextFromCodePage(bytes, codePage);
}

Bytes EncodeText(std::string_view text, std::int32_t codePage) { return TextToCodePage(text, codePage); }

std::u16string Utf16FromUtf8(std::string_view text) {
  std::u16string units;
  units.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const auto character = TakeCharacter(text, at);
    if (character < 0x10000) {
      units += static_cast<char16_t>(character);
    } else {
      units += static_cast<char16_t>(0xD7C0 + (character >> 10));
      units += static_cast<char16_t>(0xDC00 + (character & 0x3FF));
    }
  }
  return units;
}

}  // namespace ptzd
