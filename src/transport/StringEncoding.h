#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <ptzd/Variant.h>

namespace ptzd {

/// Bytes of a reply as UTF-8 text. Bytes that stand for no character become U+FFFD (in code page 1252 the
/// character of the same number); empty where the code page is not known. Never raises.
std::string DecodeBytes(std::span<const std::uint8_t> bytes, std::int32_t codePage);

/// The inverse: UTF-8 text as bytes of a code page, "?" for a character that it lacks.
Bytes EncodeText(std::string_view text, std::int32_t codePage);

/// The UTF-16 code units of UTF-8 text, in which hosts count characters. A byte that is no UTF-8 stands for
/// U+FFFD.
std::u16string Utf16FromUtf8(std::string_view text);

}  // namespace ptzd
