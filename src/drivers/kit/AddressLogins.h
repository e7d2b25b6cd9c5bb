#pragma once

#include <string_view>
#include <vector>

#include "common/Credentials.h"

namespace ptzd {

/// The user and password that stand before the last "@" of an address, as they stand there, decoded, encoded
/// as `UrlEncode` does, and as a reply in UTF-8 shows them. None where there is no "@", nor where only a path
/// has one.
std::vector<Login> LoginsOf(std::string_view address);

}  // namespace ptzd
