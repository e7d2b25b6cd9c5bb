#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ptzsim {

/// A request target taken apart: "/a/b.cgi?x=1&y" is path "/a/b.cgi" and the pairs (x, 1) and (y, ""), in the
/// order they came. Names and values are percent-decoded; "+" stays as it is, as most cameras leave it, or is
/// a blank, as in forms.
struct Query {
  explicit Query(std::string_view target, bool plusIsBlank = false);

  /// The first value of that name.
  std::optional<std::string> Find(std::string_view name) const;

  std::string Path;
  std::string Text;  ///< what stood after the "?", undecoded
  std::vector<std::pair<std::string, std::string>> Pairs;
};

/// A decimal number that fills the whole text ("-12.5", "1E-05"); nothing for anything else.
std::optional<double> Number(std::string_view text);

/// The same without decimals and exponent ("-12").
std::optional<long long> WholeNumber(std::string_view text);

/// What a parameter counts from 1 as an index from 0: 0 when it is missing, nothing when it is not 1 to
/// `count`.
std::optional<std::size_t> IndexOf(const Query& query, std::string_view name, std::size_t count);

/// The parts of a text between separators; an empty text is one empty part.
std::vector<std::string> Split(std::string_view text, char separator);

/// Decimal text with at most `digits` decimals and none that are not needed ("12.5", "-3").
std::string Decimal(double value, int digits);

}  // namespace ptzsim
