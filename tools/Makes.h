#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ptzd/DriverFactory.h>

namespace ptzctl {

/// Where a pattern of `ptzd::Evidence` is found: begin and end within the text, which may hold any bytes.
/// Takes no longer than a search for each of its parts.
std::optional<std::pair<std::size_t, std::size_t>> FindPattern(std::string_view pattern,
                                                               std::string_view text);

/// Whether a text has a driver's `MakeNames` as a word, in any case of letters; that is what somebody says,
/// and no proof.
bool NamesMake(const ptzd::DriverClass& driver, std::string_view text);
/// The drivers whose make a text names, in the order of the catalogue.
std::vector<const ptzd::DriverClass*> DriversNamedIn(std::string_view text);

/// "Axis" of "QVPTZ.Axis"
std::string ShortName(const ptzd::DriverClass& driver);

}  // namespace ptzctl
