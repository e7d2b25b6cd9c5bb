#pragma once

#include <string>
#include <string_view>

#include "platform/Internet.h"

namespace ptzd {

/// The components of a URL; all empty where it cannot be cracked or its port is none (0 to 65535).
UrlComponents CrackUrl(const std::string& url, Internet& internet = SystemInternet());

/// The components of a URL, or of a bare host with an optional port, which is taken as an http URL.
UrlComponents ParseUrl(const std::string& text, Internet& internet = SystemInternet());

/// Percent-encodes a text for a query string, one UTF-16 code unit at a time: letters, digits and ! ' ( ) * -
/// . _ ~ stand for themselves, a space becomes "+", a unit above 255 becomes two escapes, high byte first.
std::string UrlEncode(std::string_view text);

/// Resolves percent escapes once; what is no escape stays. The escaped bytes are of the ANSI code page, in
/// which text leaves for a camera.
std::string PercentDecode(std::string_view text);

}  // namespace ptzd
