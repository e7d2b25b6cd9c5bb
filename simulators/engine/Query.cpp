#include "simulators/engine/Query.h"

#include <charconv>
#include <cmath>
#include <cstdint>

namespace ptzsim {
namespace {

std::string PercentDecode(std::string_view text, bool plusIsBlank = false) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    std::uint8_t byte = 0;
    const char* first = text.data() + i + 1;
    if (text[i] == '%' && i + 2 < text.size() &&
        std::from_chars(first, first + 2, byte, 16).ptr == first + 2) {
      decoded += static_cast<char>(byte);
      i += 2;
    } else {
      decoded += plusIsBlank && text[i] == '+' ? ' ' : text[i];
    }
  }
  return decoded;
}

}  // namespace

Query::Query(std::string_view target, bool plusIsBlank) {
  const auto mark = target.find('?');
  Path = PercentDecode(target.substr(0, mark));
  if (mark == std::string_view::npos) return;
  Text = target.substr(mark + 1);
  if (Text.empty()) return;
  for (const auto& pair : Split(Text, '&')) {
    const auto equals = pair.find('=');
    const bool valued = equals != std::string::npos;
    Pairs.emplace_back(PercentDecode(std::string_view(pair).substr(0, equals), plusIsBlank),
                       valued ? PercentDecode(std::string_view(pair).substr(equals + 1), plusIsBlank) : "");
  }
}

std::optional<std::string> Query::Find(std::string_view name) const {
  for (const auto& [key, value] : Pairs) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::optional<double> Number(std::string_view text) {
  double value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || !std::isfinite(value)) return std::nullopt;
  return value;
}

std::optional<long long> WholeNumber(std::string_view text) {
  long long value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end) return std::nullopt;
  return value;
}

std::optional<std::size_t> IndexOf(const Query& query, std::string_view name, std::size_t count) {
  const auto number = WholeNumber(query.Find(name).value_or("1"));
  if (!number || *number < 1 || *number > static_cast<long long>(count)) return std::nullopt;
  return static_cast<std::size_t>(*number - 1);
}

std::vector<std::string> Split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  for (;;) {
    const auto at = text.find(separator);
    parts.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return parts;
    text.remove_prefix(at + 1);
  }
}

std::string Decimal(double value, int digits) {
  char buffer[64];
  const auto [end, error] =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, digits);
  if (error != std::errc()) return "?";
  std::string text(buffer, end);
  if (text.find('.') != std::string::npos) {
    text.erase(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text.pop_back();
  }
  return text == "-0" ? "0" : text;
}

}  // namespace ptzsim
