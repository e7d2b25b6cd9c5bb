#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

inline constexpr std::int32_t CodePage1252 = 1252;
inline constexpr std::int32_t CodePageUtf8 = 65001;

/// The code page in which text leaves for a camera: the system's ANSI code page, 1252 where there is none.
std::int32_t AnsiCodePage();

/// Bytes of a code page as UTF-8 text. Bytes that stand for no character become U+FFFD, in code page 1252 the
/// character of the same number. Empty where the code page is not known.
std::string TextFromCodePage(std::span<const std::uint8_t> bytes, std::int32_t codePage);

/// UTF-8 text as bytes of a code page; a character that it lacks becomes "?". Empty where the code page is
/// not known.
std::vector<std::uint8_t> TextToCodePage(std::string_view text, std::int32_t codePage);

}  // namespace ptzd
