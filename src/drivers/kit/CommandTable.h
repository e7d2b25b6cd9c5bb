#pragma once

#include <algorithm>
#include <span>
#include <string_view>
#include <type_traits>

namespace ptzd {

/// What a make's camera is told for one of `Zooms`, `Iris` or `Focus`.
template <typename Value>
struct CommandRow {
  Value When;
  std::string_view Command;
};

/// The command for a value; empty for one that has none, as hosts may send any.
template <typename Value>
std::string_view CommandFor(Value value, std::span<const CommandRow<std::type_identity_t<Value>>> table) {
  const auto row = std::ranges::find(table, value, &CommandRow<Value>::When);
  return row == table.end() ? std::string_view() : row->Command;
}

}  // namespace ptzd
