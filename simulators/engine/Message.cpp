#include "simulators/engine/Message.h"

#include <cstdio>

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

}  // namespace ptzsim
