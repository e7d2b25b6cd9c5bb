#pragma once

#include <string>

namespace ptzd {

/// A model's name as the tables of the Panasonic drivers have it, in upper case. The makers' names are ASCII;
/// other characters stay as they are.
inline std::string UpperCaseName(std::string name) {
  for (auto& c : name)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return name;
}

}  // namespace ptzd
