#include "transport/HTTP.h"

#include <charconv>
#include <cstdint>

#include "common/ASCII.h"
#include "common/Numbers.h"
#include "platform/CodePages.h"
#include "transport/StringEncoding.h"

namespace ptzd {

namespace {

constexpr std::string_view Unescaped = "!'()*-._~";

bool IsAlphanumeric(char16_t c) {
  return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
}

void AppendEscape(std::string& text, std::int32_t byte) { text.append("%").append(Hex2(byte)); }

/// Cracking a URL takes a port modulo 65536, so it is looked at before.
bool PortInRange(std::string_view url) {
  if (const auto scheme = url.find("://"); scheme != std::string_view::npos) url.remove_prefix(scheme + 3);
  url = url.substr(0, FindAny<'/', '?', '#'>(url));
  if (const auto at = url.rfind('@'); at != std::string_view::npos) url.remove_prefix(at + 1);
  if (const auto bracket = url.rfind(']'); bracket != std::string_view::npos) url.remove_prefix(bracket + 1);
  const auto colon = url.find(':');
  if (colon == std::string_view::npos || colon + 1 == url.size()) return true;
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(url.data() + colon + 1, url.data() + url.size(), port);
  return error == std::errc{} && end == url.data() + url.size();
}

}  // namespace

UrlComponents CrackUrl(const std::string& url, Internet& internet) {
  UrlComponents components;
  if (!PortInRange(url) || !internet.CrackUrl(url, components)) return {};
  return components;
}

UrlComponents ParseUrl(const std::string& text, Internet& internet) {
  UrlComponents components;
  if (!PortInRange(text)) return components;
  const bool cracked = internet.CrackUrl(text, components);
  // "camera1" is refused for want of a scheme; "camera1:8080" passes as scheme "camera1" without a host.
  const bool bare = cracked ? components.SchemeNumber == InternetSchemeUnknown && components.HostName.empty()
                            : internet.LastError() == SystemErrorUnrecognizedScheme;
  if (bare) return CrackUrl("http://" + text, internet);
  if (!cracked) return {};
  return components;
}

std::string UrlEncode(std::string_view text) {
  std::string encoded;
  encoded.reserve(text.size() + 64);
  for (const char16_t c : Utf16FromUtf8(text)) {
    if (IsAlphanumeric(c) || (c < 0x80 && Unescaped.find(static_cast<char>(c)) != std::string_view::npos)) {
      encoded += static_cast<char>(c);
    } else if (c == ' ') {
      encoded += '+';
    } else {
      if (c > 0xFF) AppendEscape(encoded, c >> 8);
      AppendEscape(encoded, c);
    }
  }
  return encoded;
}

std::string PercentDecode(std::string_view text) {
  if (text.find('%') == std::string_view::npos) return std::string(text);
  const auto bytes = TextToCodePage(text, AnsiCodePage());
  std::vector<std::uint8_t> decoded;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    std::uint8_t byte = bytes[i];
    if (byte == '%' && i + 2 < bytes.size()) {
      const auto* digits = reinterpret_cast<const char*>(bytes.data()) + i + 1;
      std::uint8_t escaped = 0;
      if (std::from_chars(digits, digits + 2, escaped, 16).ptr == digits + 2) {
        byte = escaped;
        i += 2;
      }
    }
    decoded.push_back(byte);
  }
  return TextFromCodePage(decoded, AnsiCodePage());
}

}  // namespace ptzd
