#include "transport/Split2DModule.h"

namespace ptzd {

namespace {

/// An empty separator is nowhere, though a search would find it at once.
std::size_t Find(std::string_view text, std::string_view separator) {
  return separator.empty() ? std::string_view::npos : text.find(separator);
}

}  // namespace

RowRange::Iterator::Iterator(const RowRange& range)
    : Rest_(range.Text_),
      RowSeparator_(range.RowSeparator_),
      FieldSeparator_(range.FieldSeparator_),
      Length_(Find(Rest_, RowSeparator_)) {}

Row RowRange::Iterator::operator*() const {
  const auto row = Rest_.substr(0, Length_);
  const auto at = Find(row, FieldSeparator_);
  if (at == std::string_view::npos) return {row, {}};
  const auto behind = row.substr(at + FieldSeparator_.size());
  return {row.substr(0, at), behind.substr(0, behind.find(FieldSeparator_))};
}

RowRange::Iterator& RowRange::Iterator::operator++() {
  AtEnd_ = Length_ == std::string_view::npos;
  if (AtEnd_) return *this;
  Rest_.remove_prefix(Length_ + RowSeparator_.size());
  Length_ = Rest_.find(RowSeparator_);
  return *this;
}

std::vector<std::string_view> Split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const auto at = Find(text, separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + separator.size());
  }
}

}  // namespace ptzd
