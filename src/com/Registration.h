#pragma once

#include "com/Automation.h"

namespace ptzd::com {

/// Registers the classes, their ProgIDs and the type library, for all users, or for the current one where
/// that is not allowed. What was written before a failure is removed again.
HRESULT RegisterLibrary();

enum class Users { All, Current };

/// The same for these users or not at all: `E_ACCESSDENIED` where it is not allowed for all.
void RegisterLibraryFor(Users users);

/// Removes what was written for these users.
void UnregisterLibraryFor(Users users);

/// Removes what `RegisterLibrary` wrote, for all users and for the current one. What the DLL of the other
/// bitness registered stays, and the ProgIDs with it. It is no error if nothing is registered.
HRESULT UnregisterLibrary();

}  // namespace ptzd::com
