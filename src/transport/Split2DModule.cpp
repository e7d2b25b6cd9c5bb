#include "transport/Split2DModule.h"

namespace ptzd {

RowRange::Iterator::Iterator(const RowRange& range)
    : Rest_(range.Text_),
      RowSeparator_(range.RowSeparator_),
      FieldSeparator_(range.FieldSeparator_),
      Length_(Rest_.find(RowSeparator_)) {}

Row RowRange::Iterator::operator*() const {
  const auto row = Rest_.substr(0, Length_);
  const auto at = row.find(FieldSeparator_);
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
    const auto at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + separator.size());
  }
}

}  // namespace ptzd
