#include "cameras/InputWords.h"

#include <charconv>
#include <cmath>
#include <limits>

#include "common/Printable.h"

namespace ptzd {

namespace {

constexpr Word<bool> BooleanWords[] = {{"true", true}, {"false", false}, {"yes", true}, {"no", false},
                                       {"on", true},   {"off", false},   {"1", true},   {"0", false}};

}  // namespace

void Refuse(std::string_view name, std::string_view word, const std::string& why) {
  throw InputError(std::string(name) + ": \"" + Printable(word) + "\" " + why);
}

std::optional<double> WholeTextNumber(std::string_view word) {
  if (word.starts_with('+') && !word.starts_with("+-")) word.remove_prefix(1);
  double value = 0;
  const auto [end, problem] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (problem == std::errc::result_out_of_range) return std::numeric_limits<double>::infinity();
  if (problem != std::errc() || end != word.data() + word.size()) return std::nullopt;
  return value;
}

float ReadNumber(std::string_view name, std::string_view word) {
  const auto value = WholeTextNumber(word);
  if (!value || std::isnan(*value)) Refuse(name, word, "is not a number");
  if (std::abs(*value) > std::numeric_limits<float>::max()) Refuse(name, word, "is too large a number");
  return static_cast<float>(*value);
}

std::int32_t ReadWholeNumber(std::string_view name, std::string_view word) {
  const auto value = WholeTextNumber(word);
  if (!value || std::isnan(*value) || (std::isfinite(*value) && *value != std::floor(*value)))
    Refuse(name, word, "is not a whole number");
  using Limits = std::numeric_limits<std::int32_t>;
  if (*value < Limits::min() || *value > Limits::max()) Refuse(name, word, "is too large a number");
  return static_cast<std::int32_t>(*value);
}

std::chrono::milliseconds ReadDuration(std::string_view name, std::string_view word) {
  constexpr std::pair<std::string_view, double> units[] = {{"ms", 1}, {"s", 1000}, {"m", 60000}, {"", 1000}};
  constexpr double day = 86400000;
  for (const auto& [unit, milliseconds] : units) {
    if (!word.ends_with(unit)) continue;
    const auto value = WholeTextNumber(word.substr(0, word.size() - unit.size()));
    if (!value) continue;
    const double time = std::round(*value * milliseconds);
    if (!(time >= 1 && time <= day)) Refuse(name, word, "is not between 1ms and a day");
    return std::chrono::milliseconds(static_cast<std::int64_t>(time));
  }
  Refuse(name, word, "is not a time such as 2s, 500ms or 1.5");
}

bool ReadBoolean(std::string_view name, std::string_view word) { return MeaningOf(BooleanWords, name, word); }

}  // namespace ptzd
