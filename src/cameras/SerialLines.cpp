#include "cameras/SerialLines.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "cameras/InputWords.h"
#include "platform/ConfigurationFolders.h"

namespace ptzd {

std::shared_ptr<SerialPortPool> SerialLines::Use(PropertyBag& bag, const std::string& line) {
  bag.WriteProperty("COMPort", NumberOf(line));
  return Ports_;
}

std::int32_t SerialLines::NumberOf(const std::string& line) {
  const bool isNumber = line.find_first_not_of("0123456789") == std::string::npos;
  const auto wanted = isNumber ? ReadWholeNumber("line", line) : 1;
  if (wanted < 1) return wanted;  // what the pool has to say of it comes on connecting
  const auto device = isNumber ? DefaultSerialDevice(wanted) : line;
  std::error_code error;
  const auto canonical = std::filesystem::weakly_canonical(PathOf(device), error);
  const auto key = error ? device : TextOf(canonical);
  if (const auto known = Numbers_.find(key); known != Numbers_.end()) return known->second;

  const auto isTaken = [this](std::int32_t number) {
    return std::ranges::any_of(Numbers_, [number](const auto& row) { return row.second == number; });
  };
  auto number = wanted;
  while (isTaken(number)) ++number;
  if (device != DefaultSerialDevice(number)) Ports_->MapDevice(number, device);
  return Numbers_[key] = number;
}

}  // namespace ptzd
