#include "platform/Terminal.h"

#include <memory>
#include <vector>

#include "platform/CodePages.h"
#include "platform/windows/SystemHeaders.h"

namespace ptzd {

namespace {

using Handle = std::unique_ptr<void, decltype(&CloseHandle)>;

Handle OpenConsole(const wchar_t* name) {
  auto* handle = CreateFileW(name, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                             OPEN_EXISTING, 0, nullptr);
  return {handle == INVALID_HANDLE_VALUE ? nullptr : handle, &CloseHandle};
}

std::wstring WideOf(const std::string& text) {
  const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  std::wstring wide(static_cast<std::size_t>(size), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), size);
  return wide;
}

std::string NarrowOf(const std::wstring& wide) {
  const int size = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                       nullptr, nullptr);
  std::string text(static_cast<std::size_t>(size), '\0');
  WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(), size, nullptr,
                      nullptr);
  return text;
}

void Write(const Handle& output, const std::string& text) {
  const auto wide = WideOf(text);
  DWORD written = 0;
  WriteConsoleW(output.get(), wide.data(), static_cast<DWORD>(wide.size()), &written, nullptr);
}

}  // namespace

bool HasTerminal() { return OpenConsole(L"CONIN$") && OpenConsole(L"CONOUT$"); }

std::optional<std::string> AskAtTerminal(const std::string& question, bool echo,
                                         const std::function<bool()>& isOver) {
  const auto input = OpenConsole(L"CONIN$"), output = OpenConsole(L"CONOUT$");
  DWORD before = 0;
  if (!input || !output || !GetConsoleMode(input.get(), &before)) return std::nullopt;
  const DWORD asking = ENABLE_LINE_INPUT | ENABLE_PROCESSED_INPUT | (echo ? ENABLE_ECHO_INPUT : 0);
  if (!SetConsoleMode(input.get(), asking)) return std::nullopt;
  Write(output, question);
  std::wstring line;
  bool ended = false;
  // Ctrl-C ends a read with nothing read.
  while (!ended && !line.ends_with(L'\n') && (!isOver || !isOver())) {
    wchar_t part[256];
    DWORD count = 0;
    ended = !ReadConsoleW(input.get(), part, 256, &count, nullptr) || count == 0;
    line.append(part, count);
  }
  SetConsoleMode(input.get(), before);
  if (!echo) Write(output, "\r\n");
  if (!line.ends_with(L'\n')) return std::nullopt;
  line.erase(line.find_last_not_of(L"\r\n") + 1);
  return NarrowOf(line);
}

}  // namespace ptzd
