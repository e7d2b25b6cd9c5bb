#include "platform/posix/SystemInternetUrl.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <string>

#include "common/ASCII.h"
#include "platform/posix/SystemInternetErrors.h"

namespace ptzd::internet {

namespace {

struct Scheme {
  std::string_view Name;
  std::int32_t Number;
  std::uint16_t Port;
};
constexpr std::array<Scheme, 3> Schemes = {
    {{"http", InternetSchemeHttp, 80}, {"https", 4, 443}, {"ftp", 1, 21}}};

// Sizes of the buffers that callers of the Windows call provide; one character of each is the closing NUL.
constexpr std::size_t SchemeSize = 32, HostNameSize = 256, CredentialSize = 128, UrlPathSize = 2048;

bool IsSchemeCharacter(char c) {
  const char lower = LowerASCII(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '-' || c == '.';
}

bool Fits(std::string_view text, std::size_t bufferSize) {
  if (text.size() < bufferSize) return true;
  const auto isCharacterStart = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
  return static_cast<std::size_t>(std::ranges::count_if(text, isCharacterStart)) < bufferSize;
}

/// Cuts `text` at the first of the delimiters; the rest, delimiter included, goes to `rest`.
template <char... Delimiters>
std::string_view CutAt(std::string_view text, std::string_view& rest) {
  const auto end = FindAny<Delimiters...>(text);
  rest = text.substr(end);
  return text.substr(0, end);
}

bool CrackAuthority(std::string_view authority, UrlComponents& components) {
  // A password may hold an "@" of its own.
  if (const auto at = authority.rfind('@'); at != std::string_view::npos) {
    std::string_view password;
    components.UserName = CutAt<':'>(authority.substr(0, at), password);
    if (!password.empty()) components.Password = password.substr(1);
    authority.remove_prefix(at + 1);
  }
  // The colons of an IPv6 address in brackets are no port's.
  const auto bracket = authority.rfind(']');
  const auto colon = authority.find(':', bracket == std::string_view::npos ? 0 : bracket);
  components.HostName = authority.substr(0, colon);
  if (colon == std::string_view::npos || colon + 1 == authority.size()) return true;
  const auto* end = authority.data() + authority.size();
  const auto result = std::from_chars(authority.data() + colon + 1, end, components.Port);
  return result.ec == std::errc{} && result.ptr == end;
}

}  // namespace

std::uint32_t CrackUrl(std::string_view url, UrlComponents& components) {
  components = {};
  if (url.empty()) return ErrorInvalidParameter;

  const auto schemeEnd =
      static_cast<std::size_t>(std::ranges::find_if_not(url, IsSchemeCharacter) - url.begin());
  if (schemeEnd == 0 || schemeEnd == url.size() || url[schemeEnd] != ':') return ErrorUnrecognizedScheme;

  UrlComponents found;
  found.Scheme = url.substr(0, schemeEnd);
  found.SchemeNumber = InternetSchemeUnknown;
  for (const auto& scheme : Schemes)
    if (EqualsIgnoringCase(scheme.Name, found.Scheme)) {
      found.SchemeNumber = scheme.Number;
      found.Port = scheme.Port;
    }

  std::string_view rest = url.substr(schemeEnd + 1);
  if (rest.starts_with("//"))
    if (!CrackAuthority(CutAt<'/', '?', '#'>(rest.substr(2), rest), found)) return ErrorInvalidUrl;
  std::string_view extraInfo;
  found.UrlPath = CutAt<'?', '#'>(rest, extraInfo);
  found.ExtraInfo = extraInfo;

  if (!Fits(found.Scheme, SchemeSize) || !Fits(found.HostName, HostNameSize) ||
      !Fits(found.UserName, CredentialSize) || !Fits(found.Password, CredentialSize) ||
      !Fits(found.UrlPath, UrlPathSize))
    return ErrorInsufficientBuffer;
  components = std::move(found);
  return SystemErrorNone;
}

}  // namespace ptzd::internet
