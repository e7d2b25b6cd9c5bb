#include "platform/CodePages.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <memory>

namespace ptzd {

namespace {

// Characters of bytes 80 to 9F. Five bytes have no character of their own and stand for the control character
// of the same number, as the system's conversion on Windows has it; iconv refuses them.
constexpr std::array<char16_t, 32> High1252 = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
    0x2039, 0x0152, 0x008D, 0x017D, 0x008F, 0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
    0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178};

void AppendUtf8(std::string& text, char16_t c) {
  if (c < 0x80) {
    text += static_cast<char>(c);
  } else if (c < 0x800) {
    text += static_cast<char>(0xC0 | (c >> 6));
    text += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    text += static_cast<char>(0xE0 | (c >> 12));
    text += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    text += static_cast<char>(0x80 | (c & 0x3F));
  }
}

std::string From1252(std::span<const std::uint8_t> bytes) {
  std::uint8_t bits = 0;
  for (const auto byte : bytes) bits |= byte;
  if (bits < 0x80) return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};  // nearly every reply

  std::string text;
  text.reserve(bytes.size());
  for (const auto byte : bytes) {
    if (byte < 0x80)
      text += static_cast<char>(byte);
    else
      AppendUtf8(text, byte < 0xA0 ? High1252[byte - 0x80] : byte);
  }
  return text;
}

struct Converter {
  iconv_t Handle;
  Converter(const std::string& to, const std::string& from) : Handle(iconv_open(to.c_str(), from.c_str())) {}
  ~Converter() {
    if (Opened()) iconv_close(Handle);
  }
  Converter(const Converter&) = delete;
  Converter& operator=(const Converter&) = delete;
  bool Opened() const { return Handle != reinterpret_cast<iconv_t>(-1); }
};

/// Converts all it can; what cannot be converted is replaced, a byte or a whole UTF-8 character at a time.
template <typename Output>
Output Convert(std::string_view input, const std::string& to, const std::string& from,
               std::string_view replacement, bool wholeCharacters) {
  Converter converter(to, from);
  Output output;
  if (!converter.Opened()) return output;
  char* next = const_cast<char*>(input.data());  // iconv does not write to its input
  std::size_t left = input.size();
  std::array<char, 1024> piece;
  while (left > 0) {
    char* out = piece.data();
    std::size_t room = piece.size();
    const auto result = iconv(converter.Handle, &next, &left, &out, &room);
    const int error = errno;
    output.insert(output.end(), piece.data(), out);
    if (result != static_cast<std::size_t>(-1) || error == E2BIG) continue;
    output.insert(output.end(), replacement.begin(), replacement.end());
    do {
      ++next;
      --left;
    } while (wholeCharacters && left > 0 && (static_cast<unsigned char>(*next) & 0xC0) == 0x80);
  }
  return output;
}

std::string IconvName(std::int32_t codePage) {
  switch (codePage) {
    case CodePageUtf8:
      return "UTF-8";
    case 20127:
      return "ASCII";
    case 28591:
      return "ISO-8859-1";
    default:
      return "CP" + std::to_string(codePage);
  }
}

}  // namespace

std::int32_t AnsiCodePage() { return CodePage1252; }

std::string TextFromCodePage(std::span<const std::uint8_t> bytes, std::int32_t codePage) {
  if (codePage == CodePage1252) return From1252(bytes);
  const std::string_view input(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return Convert<std::string>(input, "UTF-8", IconvName(codePage), "\xEF\xBF\xBD", false);
}

std::vector<std::uint8_t> TextToCodePage(std::string_view text, std::int32_t codePage) {
  if (codePage != CodePage1252)
    return Convert<std::vector<std::uint8_t>>(text, IconvName(codePage), "UTF-8", "?", true);
  std::vector<std::uint8_t> bytes;
  bytes.reserve(text.size());
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<unsigned char>(text[i++]);
    if (lead < 0x80) {
      bytes.push_back(lead);
      continue;
    }
    std::uint32_t character = lead >= 0xF0 ? lead & 0x07 : lead >= 0xE0 ? lead & 0x0F : lead & 0x1F;
    while (i < text.size() && (static_cast<unsigned char>(text[i]) & 0xC0) == 0x80)
      character = (character << 6) | (static_cast<unsigned char>(text[i++]) & 0x3F);
    std::uint8_t byte = '?';
    if (character >= 0xA0 && character <= 0xFF) byte = static_cast<std::uint8_t>(character);
    for (std::size_t high = 0; high < High1252.size(); ++high)
      if (High1252[high] == character) byte = static_cast<std::uint8_t>(0x80 + high);
    bytes.push_back(byte);
  }
  return bytes;
}

}  // namespace ptzd
