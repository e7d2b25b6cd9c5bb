#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

/// A row of a reply: what stands before the first field separator, and between it and the second.
using Row = std::array<std::string, 2>;

/// Splits a text into rows and every row into its first two fields; further fields are dropped, and a row
/// without the field separator stands whole in the first. An empty text is one empty row.
std::vector<Row> Split2D(std::string_view text, std::string_view rowSeparator,
                         std::string_view fieldSeparator);

/// Splits a text at every separator; an empty text is one empty part.
std::vector<std::string_view> Split(std::string_view text, std::string_view separator);

}  // namespace ptzd
