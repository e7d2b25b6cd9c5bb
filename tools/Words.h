#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <ptzd/Enumerations.h>
#include "cameras/InputWords.h"
#include "common/Printable.h"

namespace ptzctl {

/// The command line is not one that ptzctl knows; the text says what is wrong with it.
using UsageError = ptzd::InputError;
using ptzd::Printable;

// What a word on the command line means. `name` is what the word stands for; all raise `UsageError`, which
// names both.
using ptzd::ReadBoolean;
using ptzd::ReadDuration;
using ptzd::ReadNumber;
using ptzd::ReadWholeNumber;
ptzd::Directions ReadDirection(std::string_view name, std::string_view word);
ptzd::Zooms ReadZoom(std::string_view name, std::string_view word);
ptzd::Iris ReadIris(std::string_view name, std::string_view word);
ptzd::Focus ReadFocus(std::string_view name, std::string_view word);

// The words that `ReadDirection` and so on know, as "in|out".
std::string DirectionChoices();
std::string ZoomChoices();
std::string IrisChoices();
std::string FocusChoices();

/// "up-left"; the number where it has no name.
std::string DirectionText(ptzd::Directions direction);

/// The identifiers of the flags, in the order of their values.
std::vector<std::string> CapabilityWordsOf(std::int32_t capabilities);
std::string CapabilityWord(ptzd::Capabilities flag);

/// "not connected" as "not_connected"
std::string Identifier(std::string_view name);

/// The number that the decimal text of a single spells, so that it prints as people wrote it.
double AsWritten(float value);

/// "1.5 s"
std::string Seconds(std::chrono::milliseconds time);

/// Why the system did not do what it was asked, by what it left in `errno`, which is set to 0 before.
std::string SystemReason();

/// Words of a line, divided by blanks; a word in double quotes may hold blanks. Raises `UsageError` where
/// quotes are not closed.
std::vector<std::string> SplitWords(const std::string& line);

}  // namespace ptzctl
