#pragma once

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace ptzsim {

/// The row of a make's table of models that has this `Name`. Throws std::invalid_argument where none has.
template <class Model, std::size_t Size>
const Model& FindModel(const Model (&models)[Size], std::string_view name) {
  const auto found = std::find_if(std::begin(models), std::end(models),
                                  [&](const Model& model) { return model.Name == name; });
  if (found == std::end(models))
    throw std::invalid_argument("no model is called \"" + std::string(name) + "\"");
  return *found;
}

template <class Model, std::size_t Size>
std::vector<std::string> NamesOf(const Model (&models)[Size]) {
  std::vector<std::string> names;
  for (const Model& model : models) names.emplace_back(model.Name);
  return names;
}

/// As many as a camera has of a kind, made with their indices. Throws std::invalid_argument unless there are
/// 1 to `most`.
template <class Maker>
auto Several(int count, int most, const char* what, const Maker& make) {
  if (count < 1 || count > most)
    throw std::invalid_argument(std::to_string(count) + " " + what + ": there are 1 to " +
                                std::to_string(most));
  std::vector<decltype(make(0))> all;
  for (int i = 0; i < count; ++i) all.push_back(make(i));
  return all;
}

}  // namespace ptzsim
