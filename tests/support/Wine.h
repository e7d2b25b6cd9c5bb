#pragma once

#include <string>

namespace ptzd::test {

/// Whether this runs under Wine, whose internet layer shows some things differently or not at all.
bool UnderWine();

/// Under Wine true, with a note in the output, for a row of a table that cannot be shown there; `reason` is
/// null for all others.
bool LeftOutUnderWine(const std::string& row, const char* reason);

}  // namespace ptzd::test
