#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/ASCII.h"

namespace ptzd {

/// What somebody wrote, on a command line or in a file, is not what can stand there; the text says what is
/// wrong with it.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// What a word means. `name` is what the word stands for; all raise `InputError`, which names both.
float ReadNumber(std::string_view name, std::string_view word);
std::int32_t ReadWholeNumber(std::string_view name, std::string_view word);
/// "2s", "500ms", "1.5" (seconds) or "2m"; more than 0, at most a day.
std::chrono::milliseconds ReadDuration(std::string_view name, std::string_view word);
bool ReadBoolean(std::string_view name, std::string_view word);

/// Raises `InputError`: what it stands for, the word, and why it cannot be.
[[noreturn]] void Refuse(std::string_view name, std::string_view word, const std::string& why);

/// The number that the whole of a word spells; infinity where it is too large.
std::optional<double> WholeTextNumber(std::string_view word);

template <typename Value>
struct Word {
  std::string_view Text;
  Value Means;
};

/// The words of a table, as "in|out" perhaps.
template <typename Value, std::size_t Count>
std::string TextOf(const Word<Value> (&words)[Count], std::string_view between) {
  std::string text;
  for (const auto& word : words) text.append(text.empty() ? "" : between).append(word.Text);
  return text;
}

/// What a word of a table means, in any case of letters. Raises `InputError` for one that is not there.
template <typename Value, std::size_t Count>
Value MeaningOf(const Word<Value> (&words)[Count], std::string_view name, std::string_view word) {
  for (const auto& candidate : words)
    if (EqualsIgnoringCase(candidate.Text, word)) return candidate.Means;
  Refuse(name, word, "is none of " + TextOf(words, ", "));
}

}  // namespace ptzd
