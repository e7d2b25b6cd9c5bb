#include "platform/SerialSettings.h"

#include <charconv>
#include <string>

#include <ptzd/Error.h>
#include <ptzd/SerialPort.h>

namespace ptzd {

std::uint32_t BaudOfSettings(std::string_view text) {
  std::uint32_t baud = 0;
  const auto* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, baud);
  const std::string_view format(rest, static_cast<std::size_t>(end - rest));
  if (error != std::errc{} || baud == 0 || (format != ",n,8,1" && format != ",N,8,1"))
    throw Error(SerialErrorSettings, "Invalid settings of a serial port: \"" + std::string(text) +
                                         "\" is not of the form \"2400,n,8,1\"");
  return baud;
}

}  // namespace ptzd
