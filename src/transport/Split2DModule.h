#pragma once

#include <array>
#include <concepts>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace ptzd {

/// A row of a reply: what stands before the first field separator, and between it and the second.
using Row = std::array<std::string_view, 2>;

/// The rows of a text, found as they are asked for: nothing is allocated, however many rows a camera sends.
/// Rows point into the text, which must outlive them.
class RowRange {
 public:
  class Iterator {
   public:
    explicit Iterator(const RowRange& range);

    Row operator*() const;
    Iterator& operator++();
    bool operator==(std::default_sentinel_t) const { return AtEnd_; }

   private:
    std::string_view Rest_;  ///< from the row on
    std::string_view RowSeparator_, FieldSeparator_;
    std::size_t Length_;  ///< of the row, npos for the last
    bool AtEnd_ = false;
  };

  RowRange(std::string_view text, std::string_view rowSeparator, std::string_view fieldSeparator)
      : Text_(text), RowSeparator_(rowSeparator), FieldSeparator_(fieldSeparator) {}

  Iterator begin() const { return Iterator(*this); }
  std::default_sentinel_t end() const { return {}; }

 private:
  std::string_view Text_, RowSeparator_, FieldSeparator_;
};

/// Splits a text into rows and every row into its first two fields; further fields are dropped, and a row
/// without the field separator stands whole in the first. An empty text is one empty row, and an empty
/// separator separates nothing. The text and the
/// separators must outlive the rows.
inline RowRange Split2D(std::string_view text, std::string_view rowSeparator,
                        std::string_view fieldSeparator) {
  return {text, rowSeparator, fieldSeparator};
}

/// A text that is gone before its first row is read.
template <std::same_as<std::string> Temporary>
RowRange Split2D(Temporary&& text, std::string_view rowSeparator, std::string_view fieldSeparator) = delete;

/// Splits a text at every separator; an empty text is one empty part, and an empty separator separates
/// nothing.
std::vector<std::string_view> Split(std::string_view text, std::string_view separator);

}  // namespace ptzd
