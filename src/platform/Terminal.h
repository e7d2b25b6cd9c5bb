#pragma once

#include <functional>
#include <optional>
#include <string>

namespace ptzd {

/// Whether this process has a terminal at which somebody can be asked, whatever its streams are.
bool HasTerminal();

/// Asks at the terminal and blocks until a line was typed. Without `echo` nothing of it is shown. Nothing
/// where there is no terminal, the input ended, or `isOver` (looked at several times a second; may be empty)
/// says that no answer is wanted any more. Ctrl-C has the effect that it always has, with the terminal as it
/// was.
std::optional<std::string> AskAtTerminal(const std::string& question, bool echo,
                                         const std::function<bool()>& isOver = {});

}  // namespace ptzd
