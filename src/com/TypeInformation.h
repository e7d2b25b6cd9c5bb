#pragma once

#include "com/Automation.h"

#include <string>
#include <vector>

#include "com/Dispatch.h"

namespace ptzd::com {

// What a type, or a whole type library, says of itself. All raise the HRESULT where it cannot be read.
// Pointers in what is answered are not to be followed.

std::wstring NameOf(ITypeInfo* info);
TYPEATTR AttributesOf(ITypeInfo* info);
TLIBATTR AttributesOf(ITypeLib* library);

/// Describes a dispatch that answers these members. It stands in for an interface of the type library, whose
/// name and identifier it has, in a library in memory with the name, the identifier and the enumerations of
/// the recorded one. Every parameter is described as passed by value, a byte array too: nothing comes back in
/// it. Raises the HRESULT.
ComPtr<ITypeInfo> DescribeDispatch(ITypeInfo* interface, const std::vector<DescribedMember>& members);

}  // namespace ptzd::com
