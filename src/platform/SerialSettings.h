#pragma once

#include <cstdint>
#include <string_view>

namespace ptzd {

/// The speed in the settings text of a serial port. Raises 380 for a text that is not "baud,n,8,1".
std::uint32_t BaudOfSettings(std::string_view text);

}  // namespace ptzd
