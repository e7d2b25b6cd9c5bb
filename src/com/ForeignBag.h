#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <ptzd/PropertyBag.h>

namespace ptzd::com {

/// Hands contents to the property bag of the host's own component run time, where that is installed; null
/// where it is not. Raises what that class does for bytes that are not its own. Values are read late-bound;
/// an object among them is refused with 13 (type mismatch).
std::unique_ptr<const ForeignContents> OpenForeignContents(std::span<const std::uint8_t> bytes);

/// What that class makes of these values, for drivers that read them by it; nothing where it is not
/// installed.
std::optional<Bytes> MakeForeignContents(std::span<const std::pair<std::string, Variant>> values);

}  // namespace ptzd::com
