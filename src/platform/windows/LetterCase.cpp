#include "platform/LetterCase.h"

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

std::string LowerCase(std::string_view text) {
  const int size = static_cast<int>(text.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0'), lower(wide);
  MultiByteToWideChar(CP_UTF8, 0, text.data(), size, wide.data(), length);
  LCMapStringW(LOCALE_INVARIANT, LCMAP_LOWERCASE, wide.data(), length, lower.data(), length);
  const int lowerSize = WideCharToMultiByte(CP_UTF8, 0, lower.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(lowerSize), '\0');
  WideCharToMultiByte(CP_UTF8, 0, lower.data(), length, result.data(), lowerSize, nullptr, nullptr);
  return result;
}

}  // namespace ptzd
