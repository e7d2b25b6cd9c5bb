#pragma once

#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>
#include <string_view>

#include "common/ASCII.h"

namespace ptzd {

/// Whether a body under this Transfer-Encoding comes in chunks and so tells its end itself.
inline bool IsChunked(std::string_view transferEncoding) {
  constexpr std::string_view chunked = "chunked";
  if (transferEncoding.size() < chunked.size()) return false;
  return EqualsIgnoringCase(transferEncoding.substr(transferEncoding.size() - chunked.size()), chunked);
}

/// The number of a Content-Length line, the highest where 64 bits do not hold it; nothing where it is none.
inline std::optional<std::uint64_t> LengthFromText(std::string_view text) {
  std::uint64_t length = 0;
  const auto* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, length);
  if (result.ec == std::errc::invalid_argument || result.ptr != end) return std::nullopt;
  return result.ec == std::errc{} ? length : std::numeric_limits<std::uint64_t>::max();
}

}  // namespace ptzd
