#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

/// The name that somebody most likely meant by a word: the one with the fewest letters changed, left out, put
/// in or swapped, or a name that begins so, case aside. Empty where none is near.
std::string Nearest(std::string_view word, const std::vector<std::string>& names);

/// "; do you mean Axis?", or nothing where no name is near.
std::string DoYouMean(std::string_view word, const std::vector<std::string>& names);

}  // namespace ptzd
