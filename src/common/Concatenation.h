#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace ptzd {

// Texts and views of texts in one sum, which the standard library has from C++26 on.

inline std::string operator+(std::string text, std::string_view more) { return std::move(text.append(more)); }
inline std::string operator+(std::string_view text, const std::string& more) {
  return std::string(text).append(more);
}

}  // namespace ptzd
