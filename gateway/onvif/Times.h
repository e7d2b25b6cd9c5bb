#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace ptzgate {

/// "PT1M0.5S", as XML has it; nothing for what is none, is negative, or has years or months, which have no
/// length. Beyond 100 years it is 100 years.
std::optional<std::chrono::milliseconds> ReadDuration(std::string_view text);
std::string DurationText(std::chrono::milliseconds duration);

/// "2026-02-03T04:05:06.789Z", also with another offset or without one, which is UTC then.
std::optional<std::chrono::system_clock::time_point> ReadTime(std::string_view text);

}  // namespace ptzgate
