#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Internet.h"

namespace ptzd::internet {

/// Splits a URL as the Windows Internet API does, nothing decoded. 0, or the error number: 87 for an empty
/// text, 12006 where there is no scheme, 12005 for a port that is none, 122 for a component that is too long.
std::uint32_t CrackUrl(std::string_view url, UrlComponents& components);

}  // namespace ptzd::internet
