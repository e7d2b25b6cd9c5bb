#include "platform/DebugOutput.h"

#include <string>

#include "platform/windows/SystemHeaders.h"

namespace ptzd {

void DebugOutput(std::string_view line) {
  const int size = static_cast<int>(line.size());
  const int length = MultiByteToWideChar(CP_UTF8, 0, line.data(), size, nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(length), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, line.data(), size, wide.data(), length);
  OutputDebugStringW(wide.c_str());
}

}  // namespace ptzd
