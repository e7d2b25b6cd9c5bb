#include "simulators/engine/Message.h"

#include <charconv>
#include <cstdio>
#include <stdexcept>

namespace ptzsim {

std::string Hex(const std::string& bytes) {
  std::string text;
  for (const char byte : bytes) {
    char digits[4];
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned char>(byte));
    text += (text.empty() ? "" : " ") + std::string(digits);
  }
  return text;
}

std::vector<unsigned char> BytesOf(std::string_view digits) {
  std::vector<unsigned char> bytes(digits.size() / 2);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const char* const pair = digits.data() + 2 * i;
    if (std::from_chars(pair, pair + 2, bytes[i], 16).ptr != pair + 2)
      throw std::invalid_argument("\"" + std::string(digits) + "\" is not hexadecimal");
  }
  if (digits.size() % 2 != 0) throw std::invalid_argument("half a byte at the end");
  return bytes;
}

}  // namespace ptzsim
