#include "drivers/kit/Options.h"

#include <algorithm>

#include "common/Numbers.h"

namespace ptzd {

namespace {

bool Names(const Variant& indexKey, std::size_t position, std::string_view name) {
  if (const auto* text = std::get_if<std::string>(&indexKey)) return *text == name;
  if (std::holds_alternative<std::monostate>(indexKey) || std::holds_alternative<Bytes>(indexKey))
    return false;
  return ToDouble(indexKey) == static_cast<double>(position);
}

}  // namespace

std::optional<PTZOption> DescribedOptions::Item(const Variant& indexKey) {
  std::size_t position = 0;
  for (const auto* option : Described_)
    if (option->Described && Names(indexKey, position++, option->Name)) return option->Descriptor();
  return PTZOption();
}

std::int32_t DescribedOptions::Count() {
  return static_cast<std::int32_t>(std::ranges::count(Described_, true, &DriverOption::Described));
}

std::vector<PTZOption> DescribedOptions::NewEnum() {
  std::vector<PTZOption> all;
  for (const auto* option : Described_)
    if (option->Described) all.push_back(option->Descriptor());
  return all;
}

}  // namespace ptzd
