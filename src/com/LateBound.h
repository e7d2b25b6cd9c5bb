#pragma once

#include "com/Automation.h"

#include <span>

#include "com/Values.h"

namespace ptzd::com {

/// Calls a member of a host's object by its name; `kind` is DISPATCH_METHOD, DISPATCH_PROPERTYGET or
/// DISPATCH_PROPERTYPUT, and the arguments stand last to first. Throws what the member raised, or the HRESULT
/// with the member's name where the object lacks it.
OwnedVariant CallByName(IDispatch* object, const wchar_t* member, WORD kind,
                        std::span<VARIANT> arguments = {});

}  // namespace ptzd::com
