#include "platform/CodePages.h"

#include <limits>
#include <stdexcept>

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

int LengthOf(std::size_t size) {
  if (size > static_cast<std::size_t>(std::numeric_limits<int>::max()))
    throw std::length_error("a text of more than 2 GB cannot be converted");
  return static_cast<int>(size);
}

std::wstring WideFrom(UINT codePage, const char* bytes, std::size_t size) {
  const int length = LengthOf(size);
  if (length == 0) return {};
  std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(codePage, 0, bytes, length, nullptr, 0)),
                    L'\0');
  MultiByteToWideChar(codePage, 0, bytes, length, wide.data(), LengthOf(wide.size()));
  return wide;
}

bool HasEveryCharacter(UINT codePage) {
  constexpr UINT gb18030 = 54936;
  return codePage == CP_UTF8 || codePage == CP_UTF7 || codePage == gb18030;
}

/// Characters that take two units become one that every code page lacks.
std::wstring WithoutPairs(const std::wstring& wide) {
  std::wstring units;
  units.reserve(wide.size());
  for (std::size_t i = 0; i < wide.size(); ++i) {
    const bool isPair = i + 1 < wide.size() && IS_SURROGATE_PAIR(wide[i], wide[i + 1]);
    units += isPair ? L'\xFFFD' : wide[i];
    if (isPair) ++i;
  }
  return units;
}

template <typename Output>
Output Convert(UINT codePage, DWORD flags, const std::wstring& wide, const char* missing) {
  const int length = LengthOf(wide.size());
  if (length == 0) return {};
  const int size = WideCharToMultiByte(codePage, flags, wide.data(), length, nullptr, 0, missing, nullptr);
  Output output(static_cast<std::size_t>(size), typename Output::value_type{});
  WideCharToMultiByte(codePage, flags, wide.data(), length, reinterpret_cast<char*>(output.data()), size,
                      missing, nullptr);
  return output;
}

}  // namespace

std::int32_t AnsiCodePage() { return static_cast<std::int32_t>(GetACP()); }

std::string TextFromCodePage(std::span<const std::uint8_t> bytes, std::int32_t codePage) {
  const auto* first = reinterpret_cast<const char*>(bytes.data());
  const auto wide = WideFrom(static_cast<UINT>(codePage), first, bytes.size());
  return Convert<std::string>(CP_UTF8, 0, wide, nullptr);
}

std::vector<std::uint8_t> TextToCodePage(std::string_view text, std::int32_t codePage) {
  using Bytes = std::vector<std::uint8_t>;
  const auto wide = WideFrom(CP_UTF8, text.data(), text.size());
  const auto page = static_cast<UINT>(codePage);
  // A character that the code page lacks becomes one "?", not a character that looks like it. A few code
  // pages have a substitute of their own and take no such orders.
  Bytes bytes;
  if (!HasEveryCharacter(page)) bytes = Convert<Bytes>(page, WC_NO_BEST_FIT_CHARS, WithoutPairs(wide), "?");
  return bytes.empty() ? Convert<Bytes>(page, 0, wide, nullptr) : bytes;
}

}  // namespace ptzd
