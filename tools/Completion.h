#pragma once

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

/// What may stand where the line ends, by the commands and options that are declared.
Completion Complete(const CLI::App& app, const std::string& line);

/// A script that has a shell ask `ptzctl complete`; `shell` is "bash" or "zsh".
const char* CompletionScript(const std::string& shell);

}  // namespace ptzctl
