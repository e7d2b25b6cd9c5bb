#pragma once

#include <string>
#include <string_view>

namespace ptzd {

/// UTF-8 text with its letters, those beyond ASCII included, in lower case; the user's language plays no
/// part. For comparing names regardless of case.
std::string LowerCase(std::string_view text);

}  // namespace ptzd
