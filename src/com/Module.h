#pragma once

/// The DLL as a whole: what keeps it loaded, where it lies, its type library.

#include "com/Automation.h"

#include <string>

namespace ptzd::com {

/// Held by whatever must keep the DLL in memory: every object, every lock of a host.
void KeepLoaded();
void LetUnload();
bool IsHeld();

/// The DLL's own path.
std::wstring ModulePath();

/// The type library in the DLL's resources. Raises the HRESULT where it cannot be read.
ComPtr<ITypeLib> LoadOwnTypeLibrary();

}  // namespace ptzd::com
