#pragma once

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <ptzd/Enumerations.h>

namespace ptzctl {

/// The command line is not one that ptzctl knows; the text says what is wrong with it.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a word on the command line means. `name` is what the word stands for; all raise `UsageError`, which
// names both.
float ReadNumber(std::string_view name, std::string_view word);
std::int32_t ReadWholeNumber(std::string_view name, std::string_view word);
/// "2s", "500ms", "1.5" (seconds) or "2m"; more than 0, at most a day.
std::chrono::milliseconds ReadDuration(std::string_view name, std::string_view word);
bool ReadBoolean(std::string_view name, std::string_view word);
ptzd::Directions ReadDirection(std::string_view name, std::string_view word);
ptzd::Zooms ReadZoom(std::string_view name, std::string_view word);
ptzd::Iris ReadIris(std::string_view name, std::string_view word);
ptzd::Focus ReadFocus(std::string_view name, std::string_view word);

/// "up-left"; the number where it has no name.
std::string DirectionText(ptzd::Directions direction);

/// The identifiers of the flags, in the order of their values.
std::vector<std::string> CapabilityWordsOf(std::int32_t capabilities);
std::string CapabilityWord(ptzd::Capabilities flag);

/// "not connected" as "not_connected"
std::string Identifier(std::string_view name);

/// "1.5 s"
std::string Seconds(std::chrono::milliseconds time);

/// Words of a line, divided by blanks; a word in double quotes may hold blanks. Raises `UsageError` where
/// quotes are not closed.
std::vector<std::string> SplitWords(const std::string& line);

/// Control characters as "\r", "\n", "\x1B", "\x9D", and bytes that are no UTF-8 likewise: whatever a camera
/// sends, a terminal is not to obey it.
std::string Printable(std::string_view text);

}  // namespace ptzctl
