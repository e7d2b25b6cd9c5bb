#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace ptzctl {

/// What the last word of a line may become.
struct Completion {
  struct Candidate {
    std::string Word, About;  ///< `About` may be empty
  };
  std::string Begun;  ///< the word as far as it is typed
  std::vector<Candidate> Candidates;
  bool IsFile = false;  ///< the name of a file is wanted
};

/// Names for numbers, as a site has them.
using Presets = std::map<std::string, std::int32_t>;

/// What may stand where the line ends, by the commands and options that are declared. The presets are those
/// of the camera where the line names none.
Completion Complete(const CLI::App& app, const std::string& line, const Presets& presets = {});

/// A script that has a shell ask `ptzctl complete`; `shell` is "bash" or "zsh".
const char* CompletionScript(const std::string& shell);

}  // namespace ptzctl
