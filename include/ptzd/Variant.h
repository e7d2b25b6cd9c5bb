#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace ptzd {

using Bytes = std::vector<std::uint8_t>;

/// A value whose type is known only at run time: an option's value or default, a collection's index.
/// `std::monostate` is the empty variant.
using Variant = std::variant<std::monostate, bool, std::int32_t, float, double, std::string, Bytes>;

}  // namespace ptzd
