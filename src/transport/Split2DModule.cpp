#include "transport/Split2DModule.h"

namespace ptzd {

std::vector<std::string_view> Split(std::string_view text, std::string_view separator) {
  std::vector<std::string_view> parts;
  while (true) {
    const auto at = text.find(separator);
    parts.push_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + separator.size());
  }
}

std::vector<Row> Split2D(std::string_view text, std::string_view rowSeparator,
                         std::string_view fieldSeparator) {
  std::vector<Row> rows;
  for (const auto line : Split(text, rowSeparator)) {
    const auto fields = Split(line, fieldSeparator);
    rows.push_back({std::string(fields[0]), fields.size() > 1 ? std::string(fields[1]) : std::string()});
  }
  return rows;
}

}  // namespace ptzd
