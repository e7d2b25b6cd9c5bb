#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include <ptzd/PropertyBag.h>

namespace ptzd::com {

/// Hands contents to the property bag of the host's own component run time, where that is installed; null
/// where it is not. Raises what that class does for bytes that are not its own. Values are read late-bound;
/// an object among them is refused with 13 (type mismatch).
std::unique_ptr<const ForeignContents> OpenForeignContents(std::span<const std::uint8_t> bytes);

}  // namespace ptzd::com
