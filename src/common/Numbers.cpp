#include "common/Numbers.h"

#include <bit>
#include <charconv>
#include <cmath>
#include <limits>
#include <optional>
#include <system_error>

#include <ptzd/Error.h>
#include "common/ASCII.h"

namespace ptzd {

namespace {

template <typename Integer>
Integer RoundTo(double value) {
  // Written so that NaN fails it too.
  const double rounded = std::nearbyint(value);
  if (!(rounded >= std::numeric_limits<Integer>::min() && rounded <= std::numeric_limits<Integer>::max()))
    Raise(ErrorOverflow);
  return static_cast<Integer>(rounded);
}

bool IsBlank(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back())) text.remove_suffix(1);
  return text;
}

/// The longest decimal number at the start of the text, which is moved behind it; nothing if there is none.
std::optional<double> TakeDecimal(std::string_view& text) {
  std::string spelled;  // as std::from_chars reads it: no plus sign, "e" for the exponent
  std::size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    if (text[i] == '-') spelled += '-';
    ++i;
  }
  bool digits = false, point = false, significant = false;
  int magnitude = 0;  // places of the first digit other than 0 before the point, negative behind it
  for (; i < text.size() && (IsDigit(text[i]) || (text[i] == '.' && !point)); ++i) {
    if (text[i] == '.') {
      point = true;
    } else {
      digits = true;
      significant = significant || text[i] != '0';
      if (significant && !point) ++magnitude;
      if (!significant && point) --magnitude;
    }
    spelled += text[i];
  }
  if (!digits) return std::nullopt;
  if (i < text.size() && (LowerASCII(text[i]) == 'e' || LowerASCII(text[i]) == 'd')) {
    const bool sign = i + 1 < text.size() && (text[i + 1] == '+' || text[i + 1] == '-');
    std::size_t end = i + 1 + sign;
    int exponent = 0;
    for (; end < text.size() && IsDigit(text[end]); ++end)
      if (exponent < 1000000) exponent = exponent * 10 + (text[end] - '0');
    if (IsDigit(text[end - 1])) {  // "1E" and "1E+" are 1, followed by text
      if (sign && text[i + 1] == '-') exponent = -exponent;
      spelled += 'e' + std::to_string(exponent);
      magnitude += exponent;
      i = end;
    }
  }
  text.remove_prefix(i);
  double value = 0;
  const auto error = std::from_chars(spelled.data(), spelled.data() + spelled.size(), value).ec;
  if (error == std::errc::result_out_of_range && magnitude > 0) Raise(ErrorOverflow);
  return value;  // 0 where the number is too small for a double
}

/// "&H" and "&O" numbers: up to 16 bits they are 16-bit signed numbers, beyond that 32-bit ones.
std::optional<double> PrefixedNumber(std::string_view text) {
  if (text.size() < 3 || text[0] != '&') return std::nullopt;
  const char kind = LowerASCII(text[1]);
  if (kind != 'h' && kind != 'o') return std::nullopt;
  std::uint32_t value = 0;
  const auto [end, error] =
      std::from_chars(text.data() + 2, text.data() + text.size(), value, kind == 'h' ? 16 : 8);
  if (error == std::errc::result_out_of_range) Raise(ErrorOverflow);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  if (value <= 0xFFFF) return static_cast<std::int16_t>(value);
  return static_cast<std::int32_t>(value);
}

/// The last hexadecimal digits of the two's complement.
std::string LowDigits(std::int32_t value, std::size_t count) {
  std::string text(count, '0');
  for (auto rest = static_cast<std::uint32_t>(value); count > 0; rest >>= 4)
    text[--count] = "0123456789ABCDEF"[rest & 0xF];
  return text;
}

std::string DecimalText(double value, int significantDigits) {
  if (!std::isfinite(value)) Raise(ErrorOverflow);
  if (value == 0) return "0";  // also for -0
  char buffer[32];
  const auto result =
      std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::general, significantDigits);
  std::string text(buffer, result.ptr);
  if (const auto e = text.find('e'); e != std::string::npos) text[e] = 'E';
  return text;
}

struct AsNumber {
  double operator()(std::monostate) const { return 0; }
  double operator()(bool flag) const { return flag ? -1 : 0; }
  double operator()(const std::string& text) const { return NumberFromText(text); }
  double operator()(const Bytes&) const { Raise(ErrorTypeMismatch); }
  double operator()(auto number) const { return number; }
};

struct AsText {
  std::string operator()(std::monostate) const { return {}; }
  std::string operator()(bool flag) const { return flag ? "True" : "False"; }
  std::string operator()(const std::string& text) const { return text; }
  std::string operator()(const Bytes&) const { Raise(ErrorTypeMismatch); }
  std::string operator()(auto number) const { return Text(number); }
};

}  // namespace

std::int32_t ToInt32(double value) { return RoundTo<std::int32_t>(value); }
std::int16_t ToInt16(double value) { return RoundTo<std::int16_t>(value); }
std::uint8_t ToByte(double value) { return RoundTo<std::uint8_t>(value); }

float ToSingle(double value) {
  const float single = static_cast<float>(value);
  if (!std::isfinite(single)) Raise(ErrorOverflow);
  return single == 0 ? 0 : single;  // also for -0
}

double NumberFromText(std::string_view text) {
  text = Trim(text);
  if (const auto prefixed = PrefixedNumber(text)) return *prefixed;
  const auto value = TakeDecimal(text);
  if (!value || !text.empty()) Raise(ErrorTypeMismatch);
  return *value;
}

double ToDouble(const Variant& value) { return std::visit(AsNumber{}, value); }

std::int32_t ToInt32(const Variant& value) { return ToInt32(ToDouble(value)); }
std::int16_t ToInt16(const Variant& value) { return ToInt16(ToDouble(value)); }

bool ToBoolean(const Variant& value) {
  if (const auto* text = std::get_if<std::string>(&value)) {
    const auto trimmed = Trim(*text);
    if (EqualsIgnoringCase(trimmed, "true")) return true;
    if (EqualsIgnoringCase(trimmed, "false")) return false;
  }
  return ToDouble(value) != 0;
}

std::string ToText(const Variant& value) { return std::visit(AsText{}, value); }

double Round(double value, int decimals) {
  const double unit = std::pow(10.0, decimals);
  return std::nearbyint(value * unit) / unit;
}

double Int(double value) {
  if (!std::isfinite(value)) Raise(ErrorOverflow);
  return std::floor(value);
}

float NearestQuarter(double value) { return ToSingle(Int(value * 4 + 0.5) / 4); }

double Val(std::string_view text) {
  std::string squeezed;
  for (const char c : text)
    if (c != ' ' && c != '\t' && c != '\n') squeezed += c;
  std::string_view rest = squeezed;
  return TakeDecimal(rest).value_or(0);
}

std::string Text(std::int32_t value) { return std::to_string(value); }
std::string Text(float value) { return DecimalText(value, 7); }
std::string Text(double value) { return DecimalText(value, 15); }

std::string Hex(std::int32_t value) {
  return LowDigits(value, (std::bit_width(static_cast<std::uint32_t>(value) | 1) + 3) / 4);
}

std::string Hex2(std::int32_t value) { return LowDigits(value, 2); }
std::string Hex4(std::int32_t value) { return LowDigits(value, 4); }

std::int16_t Int16FromHex(std::string_view digits) {
  return ToInt16(NumberFromText("&H" + std::string(digits)));
}

std::string HexBytes(std::span<const std::uint8_t> bytes) {
  std::string text;
  for (const auto byte : bytes) text += (text.empty() ? "" : " ") + Hex2(byte);
  return text;
}

}  // namespace ptzd
