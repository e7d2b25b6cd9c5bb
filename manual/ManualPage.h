#pragma once

#include <CLI/App.hpp>
#include <string>

namespace manual {

/// A program's page of section 1 in roff, from the commands and options that it declares to its parser: what
/// is declared stands in it, what is hidden from the program's help does not. `seeAlso` names pages:
/// "ptzsim(1)".
std::string Page(const CLI::App& program, const std::string& version, const std::string& seeAlso);

}  // namespace manual
