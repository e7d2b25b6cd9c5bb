#include "simulators/engine/Rules.h"

namespace ptzsim {

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
    *into[i] = std::clamp(*number, range.Min, range.Max);
    if (*into[i] != *number && !clamps) return "is out of range";
  }
  return {};
}

}  // namespace ptzsim
