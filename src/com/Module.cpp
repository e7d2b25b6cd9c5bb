#include "com/Module.h"

#include "com/Automation.h"

#include <atomic>

#include "com/Errors.h"

extern "C" IMAGE_DOS_HEADER __ImageBase;

namespace ptzd::com {

namespace {

std::atomic<long> Holders{0};

}  // namespace

void KeepLoaded() { ++Holders; }
void LetUnload() { --Holders; }
bool IsHeld() { return Holders > 0; }

std::wstring ModulePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const auto length = GetModuleFileNameW(reinterpret_cast<HMODULE>(&__ImageBase), path.data(),
                                           static_cast<DWORD>(path.size()));
    if (length == 0)
      throw ComError(HRESULT_FROM_WIN32(GetLastError()), "The library's own path cannot be read");
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    path.resize(path.size() * 2);
  }
}

ComPtr<ITypeLib> LoadOwnTypeLibrary() {
  ComPtr<ITypeLib> library;
  Check(LoadTypeLibEx(ModulePath().c_str(), REGKIND_NONE, &library), "The type library cannot be read");
  return library;
}

}  // namespace ptzd::com
