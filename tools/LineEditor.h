#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Completion.h"
#include "Interruption.h"

namespace ptzctl {

/// Lines that somebody types at the terminal: edited, remembered, and completed by Tab.
class LineEditor {
 public:
  struct Settings {
    std::string Prompt;
    std::filesystem::path History;  ///< is read first and written at each line; empty: none
    std::function<Completion(const std::string& line)> Complete;
  };
  struct Line {
    std::string Text;
    bool IsGivenUp = false;  ///< by Ctrl-C; the text is empty
  };

  /// Null where the standard input is no terminal, or this system has its own editor in it.
  static std::unique_ptr<LineEditor> Make(Settings settings, Interruption& interruption);
  virtual ~LineEditor() = default;

  /// The next line; nothing at the end of the input or when interrupted.
  virtual std::optional<Line> Next() = 0;
};

}  // namespace ptzctl
