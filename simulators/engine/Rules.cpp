#include "simulators/engine/Rules.h"

#include <cmath>
#include <stdexcept>

namespace ptzsim {
namespace {

void Demand(double number, Motion::Range range, const std::string& text) {
  if (number < range.Min || number > range.Max) throw std::invalid_argument(text + " is out of range");
}

}  // namespace

double NumberOf(const std::string& text, Motion::Range range) {
  const auto number = Number(text);
  if (!number) throw std::invalid_argument("\"" + text + "\" is not a number");
  Demand(*number, range, text);
  return *number;
}

long long WholeOf(const std::string& text, Motion::Range range) {
  const auto number = WholeNumber(text);
  if (!number || (*number == 0 && text[0] == '-'))
    throw std::invalid_argument("\"" + text + "\" is not a whole number");
  Demand(static_cast<double>(*number), range, text);
  return *number;
}

std::string ReadArgument(Takes form, Motion::Range range, bool clamps, const std::string& text,
                         Argument& argument) {
  argument.Text = text;
  if (form == Takes::Switch) return text == "on" || text == "off" ? "" : "is neither on nor off";
  if (form == Takes::Text) return text.empty() ? "is empty" : "";
  const auto parts = Split(text, ',');
  if (parts.size() != (form == Takes::Pair ? 2u : 1u)) return "has the wrong number of values";
  double* const into[] = {&argument.First, &argument.Second};
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const auto number = Number(parts[i]);
    if (!number) return "is not a number";
    if (form == Takes::Whole && *number != std::floor(*number)) return "is not a whole number";
    *into[i] = std::clamp(*number, range.Min, range.Max);
    if (*into[i] != *number && !clamps) return "is out of range";
  }
  return {};
}

}  // namespace ptzsim
