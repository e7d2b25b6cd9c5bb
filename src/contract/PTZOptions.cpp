#include <ptzd/PTZOptions.h>

#include "common/Numbers.h"

namespace ptzd {

namespace {

bool Names(const Variant& indexKey, std::size_t position, const std::string& name) {
  if (const auto* text = std::get_if<std::string>(&indexKey)) return *text == name;
  if (std::holds_alternative<std::monostate>(indexKey) || std::holds_alternative<Bytes>(indexKey))
    return false;
  return ToDouble(indexKey) == static_cast<double>(position);
}

}  // namespace

std::optional<PTZOption> TabledOptions::Item(const Variant& indexKey) {
  PTZOption option;
  const auto table = OptionTable();
  for (std::size_t position = 0; position < table.size(); ++position) {
    const auto& row = table[position];
    if (!Names(indexKey, position, row.Name)) continue;
    option.Init(row.Name, row.Description, row.OType, row.Values, row.Default);
    break;
  }
  return option;
}

std::vector<PTZOption> TabledOptions::NewEnum() {
  std::vector<PTZOption> options;
  for (std::int32_t position = 0; position < Count(); ++position) options.push_back(Item(position).value());
  return options;
}

}  // namespace ptzd
