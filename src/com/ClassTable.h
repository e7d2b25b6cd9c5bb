#pragma once

#include "com/Automation.h"

#include <span>
#include <string>

#include <ptzd/Platform.h>

namespace ptzd::com {

/// A class that hosts may create.
struct CreatableClass {
  const GUID& Identifier;
  const char* Name;  ///< the ProgID without the library's name: "Axis"
  /// Only drivers use the platform.
  ComPtr<IUnknown> (*Create)(const CreatableClass& row, const Platform& platform);

  std::string ProgID() const { return std::string("QVPTZ.") + Name; }
};

/// All of them. A driver class is added by one row.
std::span<const CreatableClass> CreatableClasses();

/// Null for a class that is not this library's or that hosts may not create.
const CreatableClass* FindCreatableClass(REFCLSID identifier);

}  // namespace ptzd::com
